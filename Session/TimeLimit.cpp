#include "Session/TimeLimit.h"

#include <SSHSession/Mutex.h>
#include <SSHSession/Platform.h>

#include "Platform/DetachedThread.h"
#include "Platform/Socket.h"
#include "Session/SSHSession_libssh2.h"

#include <algorithm>
#include <string>
#include <system_error>

namespace SSHEngine {

using std::chrono::milliseconds;

namespace {

using Clock = std::chrono::steady_clock;

// From when on the limit counts, as far as is known now.
Clock::time_point beginning(const Connection &connection, Ending why, Clock::time_point asMade) {
    if (why == Ending::SilentCommand)
        return connection.lastProgress();
    return why == Ending::SlowLogIn ? asMade + connection.userTime().total() : asMade;
}

} // namespace

milliseconds timeLimit(milliseconds option) {
    return option.count() > 0 ? std::min<milliseconds>(option, SSHPlatform::forever)
                              : SSHPlatform::forever;
}

milliseconds limitOf(Ending why, const SSHSessionOptions &options) {
    switch (why) {
    case Ending::SlowHandshake:
        return timeLimit(options.handshakeTimeout);
    case Ending::SlowLogIn:
        return timeLimit(options.logInTimeout);
    case Ending::SlowCommand:
        return timeLimit(options.commandTimeout);
    case Ending::SilentCommand:
        return timeLimit(options.silenceTimeout);
    default:
        return SSHPlatform::forever;
    }
}

struct TimeLimit::Watch {
    void run(Connection &connection, Ending why, milliseconds limit, Clock::time_point asMade);

    SSHPlatform::Mutex mutex;
    SSHPlatform::ConditionVariable changed;
    bool isOver SSHSESSION_GUARDED_BY(mutex) = false;
};

// The mutex is held while the connection is shut down: who says that this is over waits for that.
void TimeLimit::Watch::run(Connection &connection, Ending why, milliseconds limit,
                           Clock::time_point asMade) {
    constexpr milliseconds shortest(10); // a question puts the end off all the time
    SSHPlatform::MutexLock lock(mutex);
    while (!isOver) {
        const Clock::time_point due = beginning(connection, why, asMade) + limit;
        const Clock::time_point now = Clock::now();
        if (now >= due)
            return connection.shutDown(why);
        changed.waitUntil(lock, std::max(due, now + shortest));
    }
}

TimeLimit::TimeLimit(Connection &connection, Ending why) {
    const milliseconds limit = limitOf(why, connection.engine.options());
    if (limit >= SSHPlatform::forever)
        return;
    mWatch = std::make_shared<Watch>();
    const Clock::time_point asMade =
        Clock::now() -
        (why == Ending::SlowLogIn ? connection.userTime().total() : Clock::duration(0));
    try {
        SSHPlatform::startDetachedThread([watch = mWatch, &connection, why, limit, asMade] {
            watch->run(connection, why, limit, asMade);
        });
    } catch (const std::system_error &failure) {
        SSHPlatform::log(std::string("There is no thread to watch a time limit: ") +
                         failure.what());
    }
}

TimeLimit::~TimeLimit() {
    if (!mWatch)
        return;
    const SSHPlatform::MutexLock lock(mWatch->mutex);
    mWatch->isOver = true;
    mWatch->changed.notifyAll();
}

} // namespace SSHEngine
