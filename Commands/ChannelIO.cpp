// Reading and writing a channel without blocking, and the step that does both.
#include "Commands/ChannelPump.h"

#include "Platform/Socket.h"
#include "Platform/Text.h"
#include "Session/Causes.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"
#include "Session/SSHSession_libssh2.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <utility>

using SSHEngine::Connection;
using SSHEngine::fail;

namespace {

constexpr std::chrono::milliseconds pumpWait(100);

SSHPlatform::WaitFor blockedDirections(LIBSSH2_SESSION *session) {
    static_assert(LIBSSH2_SESSION_BLOCK_INBOUND ==
                  static_cast<unsigned>(SSHPlatform::WaitFor::Reading));
    static_assert(LIBSSH2_SESSION_BLOCK_OUTBOUND ==
                  static_cast<unsigned>(SSHPlatform::WaitFor::Writing));
    return static_cast<SSHPlatform::WaitFor>(
        static_cast<unsigned>(libssh2_session_block_directions(session)) &
        static_cast<unsigned>(SSHPlatform::WaitFor::Either));
}

SSHErrorCause transferCause(const Connection &connection, ssize_t result) {
    return SSHEngine::causeOfTransfer(static_cast<int>(result), connection);
}

} // namespace

// Each piece is progress: while the server is faster than this computer, there is always another
// one.
bool SSHSession_libssh2::_readFromChannel(Connection &connection, LIBSSH2_CHANNEL *channel,
                                          SSHPlatform::ByteBuffer &data, bool isStderr,
                                          bool *keepReading, SSHErrorRef *error) {
    const int stream = isStderr ? SSH_EXTENDED_DATA_STDERR : 0;
    std::array<char, 4096> piece; // NOLINT(*-member-init): filled by the read
    ssize_t result = 0;
    while ((result = libssh2_channel_read_ex(channel, stream, piece.data(), piece.size())) > 0) {
        data.append({piece.data(), static_cast<std::size_t>(result)});
        connection.noteProgress();
        connection.notes->noteOutput(static_cast<std::size_t>(result));
    }
    if (result == 0 || result == LIBSSH2_ERROR_EAGAIN) {
        *keepReading = result != 0;
        return true;
    }
    return fail(error, [&] {
        return _errorFromFunction(
            connection.session(), isStderr ? "libssh2_channel_read_stderr" : "libssh2_channel_read",
            static_cast<std::int32_t>(result), transferCause(connection, result));
    });
}

// Answers that there may be more to write even when this call took the last byte; only the next one
// says no. While the socket has no room for what was written before, nothing is added to that.
bool SSHSession_libssh2::_writeToChannel(Connection &connection, LIBSSH2_CHANNEL *channel,
                                         SSHEngine::InputQueue &input, bool *keepWriting,
                                         SSHErrorRef *error) {
    if (input.empty()) {
        *keepWriting = false;
        return true;
    }
    ssize_t result = LIBSSH2_ERROR_EAGAIN;
    while (!connection.hasUnsent() &&
           (result = libssh2_channel_write_ex(channel, 0, input.front().data(),
                                              input.front().size())) > 0) {
        input.removeFromFront(static_cast<std::size_t>(result));
        connection.noteProgress();
        result = LIBSSH2_ERROR_EAGAIN;
    }
    if (result == 0 || result == LIBSSH2_ERROR_EAGAIN) {
        *keepWriting = true;
        return true;
    }
    return fail(error, [&] { // under the name that support staff already look for
        return _errorFromFunction(connection.session(), "libssh2_channel_read_stderr",
                                  static_cast<std::int32_t>(result),
                                  transferCause(connection, result));
    });
}

namespace SSHEngine {

bool ChannelPump::step(SSHErrorRef *error) {
    keepReading = false;
    keepWriting = false;
    if ((std::exchange(mMayWait, true) && !wait(error)) || !read(error))
        return false;
    return SSHSession_libssh2::_writeToChannel(mConnection, mChannel, input, &keepWriting, error);
}

bool ChannelPump::wait(SSHErrorRef *error) {
    if (mConnection.watch.wait(blockedDirections(mConnection.session()), pumpWait) != -1)
        return true;
    const int number = errno;
    return fail(error, [&] {
        return lostConnectionError(
            mConnection.engine,
            fmt::format("Socket error. Error: {} ({}).", SSHPlatform::errnoText(number), number),
            number, causeOfLoss(mConnection));
    });
}

// At the end of the channel nothing more would end a wait before its time.
bool ChannelPump::read(SSHErrorRef *error) {
    bool outputContinues = false;
    bool errorOutputContinues = false;
    if (!readOutput(&outputContinues, error) ||
        !readStream(*errorOutput, true, &errorOutputContinues, error))
        return false;
    keepReading = (outputContinues || errorOutputContinues) && libssh2_channel_eof(mChannel) == 0;
    return true;
}

bool ChannelPump::readOutput(bool *continues, SSHErrorRef *error) {
    return readStream(*output, false, continues, error);
}

bool ChannelPump::readStream(SSHPlatform::ByteBuffer &data, bool isStderr, bool *continues,
                             SSHErrorRef *error) {
    const std::size_t before = data.size();
    const bool succeeded = SSHSession_libssh2::_readFromChannel(mConnection, mChannel, data,
                                                                isStderr, continues, error);
    mArrived += data.size() - before;
    return succeeded;
}

void ChannelPump::queueInput(std::shared_ptr<const void> owner, std::string_view bytes) {
    input.append(std::move(owner), bytes);
    doNotWait();
}

} // namespace SSHEngine
