#include "Session/Watch.h"

#include "Session/Causes.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"
#include "Session/SSHSession_libssh2.h"

#include <limits>
#include <utility>

namespace SSHEngine {

using SSHPlatform::WaitFor;

namespace {

constexpr int mostUnanswered = 3;

// The library sends a keepalive only when its own interval has passed, in whole seconds of a clock
// that can be set. This one has always passed.
constexpr auto passedInterval = static_cast<unsigned>(std::numeric_limits<int>::min());
// One that is set for longer would let the library's waits send keepalives too, and end in
// time-outs.
constexpr unsigned noInterval = 0;

// Nothing is ever read from it: that would widen the window of a channel that may be closed, which
// some servers take for an offence.
constexpr int unusedStream = std::numeric_limits<int>::max();

} // namespace

void Watch::noteSign() noexcept {
    mLastSign = Clock::now();
    mUnanswered = 0;
}

bool Watch::isDue() const noexcept {
    return Clock::now() - mLastSign.load() >= mConnection.engine.keepAliveInterval;
}

bool Watch::wantsListening() const noexcept {
    return isDue() || SSHPlatform::waitForSocket(mConnection.socket(), WaitFor::Reading,
                                                 std::chrono::milliseconds(0)) != 0;
}

bool Watch::listen(SSHErrorRef *error) {
    // Never waits for a server that takes nothing.
    libssh2_session_set_blocking(mConnection.session(), 0);
    const int code = readIdle();
    if (code == 0)
        ask();
    if (mConnection.isShutDown())
        return fail(error, [&] { return endedCommandError(mConnection); });
    return code == 0 || fail(error, [&] {
               return lostConnectionError(mConnection.engine,
                                          "The connection ended while the session was idle.", code,
                                          causeOfLoss(mConnection));
           });
}

// Answers 0, or the library's code once the connection has ended. A server that refuses the channel
// has been read as well.
int Watch::readIdle() {
    if (mConnection.wait(WaitFor::Reading, std::chrono::milliseconds(0)) == 0)
        return 0;
    LIBSSH2_CHANNEL *const channel = mRetired ? mRetired : mOpened;
    int code = 0;
    if (channel) {
        char byte = 0;
        code = static_cast<int>(libssh2_channel_read_ex(channel, unusedStream, &byte, 1));
    } else {
        mOpened = mConnection.openChannel();
        if (!mOpened)
            code = libssh2_session_last_errno(mConnection.session());
    }
    return code > 0 || code == LIBSSH2_ERROR_EAGAIN || code == LIBSSH2_ERROR_CHANNEL_FAILURE ? 0
                                                                                             : code;
}

int Watch::wait(WaitFor directions, std::chrono::milliseconds timeout, int source) {
    const int ready = mConnection.wait(directions, timeout, source);
    if (ready == 0)
        ask();
    return ready;
}

void Watch::ask() {
    if (!mConnection.engine.options().watchesConnection || !isDue())
        return;
    if (mUnanswered == mostUnanswered)
        return mConnection.shutDown(Ending::Unanswered);
    ++mUnanswered;
    mLastSign = Clock::now();
    libssh2_keepalive_config(mConnection.session(), 1, passedInterval);
    libssh2_keepalive_send(mConnection.session(), nullptr);
    libssh2_keepalive_config(mConnection.session(), 1, noInterval);
}

LIBSSH2_CHANNEL *Watch::takeOpened() noexcept {
    LIBSSH2_CHANNEL *const opened = std::exchange(mOpened, nullptr);
    if (!opened || libssh2_channel_eof(opened) == 0)
        return opened;
    libssh2_channel_close(opened); // as the server has, meanwhile
    retire(opened);
    return nullptr;
}

void Watch::retire(LIBSSH2_CHANNEL *channel) noexcept {
    if (mConnection.engine.options().watchesConnection)
        std::swap(channel, mRetired);
    if (channel)
        libssh2_channel_free(channel);
}

} // namespace SSHEngine
