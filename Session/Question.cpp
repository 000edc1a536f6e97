#include "Session/Question.h"

#include <SSHSession/Platform.h>

#include "Platform/DetachedThread.h"
#include "Platform/Wakeup.h"
#include "Session/Connection.h"
#include "Session/SSHSession_libssh2.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <system_error>

namespace SSHEngine {

using SSHPlatform::forever;
using SSHPlatform::WaitFor;

namespace {

// What a caller and the main thread share, of whom either may be the last.
struct Asked {
    enum class State { Waiting, Begun, Abandoned };

    bool leaveWaiting(State next) {
        State waiting = State::Waiting;
        return state.compare_exchange_strong(waiting, next);
    }

    std::atomic<State> state = State::Waiting;
    std::atomic<bool> wasRun = false;
    SSHPlatform::Wakeup isDone;
};

// Whoever tells what a session waits for keeps silent while the user is asked.
class NotedQuestion {
  public:
    explicit NotedQuestion(const Connection &connection) : mNotes(*connection.notes) { note(true); }
    ~NotedQuestion() { note(false); }
    NotedQuestion(const NotedQuestion &) = delete;
    NotedQuestion &operator=(const NotedQuestion &) = delete;

  private:
    void note(bool isAsked) {
        mNotes.note([isAsked](SSHFacts &facts) {
            facts.isUserAsked = isAsked;
            facts.userAnswered = std::chrono::steady_clock::now();
        });
    }

    Notes &mNotes;
};

} // namespace

// The main thread may be busy for ever, and its loop knows no way to take work back. So another
// thread waits for it, and can be left behind.
bool askOnMainThread(const Connection &connection, const std::function<void()> &question) {
    if (connection.engine.asksNobody)
        return false;
    const UserTime::Question isAsked(connection.userTime());
    const NotedQuestion isNoted(connection);
    const auto asked = std::make_shared<Asked>();
    if (SSHPlatform::mainLoop()->isMainThread() || asked->isDone.descriptor() < 0)
        return SSHPlatform::askOnMainThread(question);
    try {
        SSHPlatform::startDetachedThread([asked, &question] {
            SSHPlatform::askOnMainThread([&] {
                if (!asked->leaveWaiting(Asked::State::Begun))
                    return;
                question(); // its caller waits
                asked->wasRun = true;
            });
            asked->isDone.signal();
        });
    } catch (const std::system_error &) { // no thread to be had
        return SSHPlatform::askOnMainThread(question);
    }
    if (connection.waitFor(asked->isDone.descriptor(), WaitFor::Reading, forever) <= 0 &&
        !asked->leaveWaiting(Asked::State::Abandoned))
        SSHPlatform::waitForSocket(asked->isDone.descriptor(), WaitFor::Reading, forever);
    return asked->wasRun;
}

} // namespace SSHEngine
