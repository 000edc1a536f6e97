#include "Commands/InputFlow.h"

#include <SSHSession/SSHCommand.h>
#include <SSHSession/Secret.h>

#include "Platform/Socket.h"
#include "Platform/Text.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

namespace SSHEngine {

namespace {

bool failToRead(int number, SSHErrorRef *error) {
    return fail(error, [number] {
        return commandError(fmt::format("The command's input could not be read. Error: {} ({}).",
                                        SSHPlatform::errnoText(number), number),
                            number, SSHErrorCause::InputUnreadable);
    });
}

} // namespace

bool flowsIn(const SSHCommand &command) {
    return command.stdinSource() || command.stdinDescriptor() != -1;
}

InputFlow::InputFlow(Connection &connection, int descriptor, SSHInputSource source)
    : mConnection(connection), mDescriptor(descriptor), mSource(std::move(source)) {}

InputFlow::~InputFlow() {
    SSHPlatform::wipe(mBytes.data(), mBytes.size());
}

bool InputFlow::read(std::string_view *piece, SSHErrorRef *error) {
    *piece = {};
    if (mHasEnded)
        return true;
    return mSource ? readSource(piece) : readDescriptor(piece, error);
}

bool InputFlow::readSource(std::string_view *piece) {
    const Connection::HeldUp heldUp(mConnection);
    const auto count = mSource(mBytes.data(), mBytes.size());
    if (!count) {
        mConnection.shutDown(Ending::Cancelled);
        return false;
    }
    mHasEnded = *count == 0;
    *piece = {mBytes.data(), std::min(*count, mBytes.size())};
    return true;
}

// The descriptor may be a blocking one, and a look tells whether it would block.
bool InputFlow::readDescriptor(std::string_view *piece, SSHErrorRef *error) {
    using SSHPlatform::WaitFor;
    const int ready =
        SSHPlatform::waitForSocket(mDescriptor, WaitFor::Reading, std::chrono::milliseconds(0));
    if (ready == 0)
        return true;
    const ssize_t count = ready < 0 ? -1 : ::read(mDescriptor, mBytes.data(), mBytes.size());
    if (count < 0)
        return errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK ? true
                                                                         : failToRead(errno, error);
    mHasEnded = count == 0;
    *piece = {mBytes.data(), static_cast<std::size_t>(count)};
    return true;
}

} // namespace SSHEngine
