#include "Platform/SerialQueue.h"

#include <SSHSession/Mutex.h>
#include <SSHSession/Platform.h>

#include "Platform/DetachedThread.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace SSHPlatform {

// Every closure draws a ticket; the closure whose ticket is being served runs. The state outlives
// the queue object for as long as a worker needs it.
struct SerialQueue::State {
    using Ticket = std::uint64_t;
    struct Queued {
        Ticket ticket;
        std::function<void()> work;
    };

    explicit State(std::string text) : label(std::move(text)) {}

    void enter(MutexLock &lock, Ticket ticket) SSHSESSION_REQUIRES(mutex) {
        while (serving != ticket)
            turn.wait(lock);
        owner = std::this_thread::get_id();
    }

    void leave() SSHSESSION_REQUIRES(mutex) {
        owner = {};
        ++serving;
        turn.notifyAll();
    }

    void runWorker();

    const std::string label;
    Mutex mutex;
    ConditionVariable turn;
    Ticket next SSHSESSION_GUARDED_BY(mutex) = 0;
    Ticket serving SSHSESSION_GUARDED_BY(mutex) = 0;
    std::thread::id owner SSHSESSION_GUARDED_BY(mutex);
    std::deque<Queued> pending SSHSESSION_GUARDED_BY(mutex);
    bool workerRuns SSHSESSION_GUARDED_BY(mutex) = false;
};

void SerialQueue::State::runWorker() {
    std::vector<std::function<void()>> finished;
    MutexLock lock(mutex);
    while (!pending.empty()) {
        Queued queued = std::move(pending.front());
        pending.pop_front();
        enter(lock, queued.ticket);
        lock.unlock();
        queued.work();
        lock.lock();
        leave();
        finished.push_back(std::move(queued.work));
    }
    workerRuns = false;
    lock.unlock();
    // `finished` is released here: the worker holds no turn and nobody waits for this thread.
}

SerialQueue::SerialQueue(std::string label) : mState(std::make_shared<State>(std::move(label))) {}

SerialQueue::~SerialQueue() = default;

void SerialQueue::sync(const std::function<void()> &work) noexcept {
    const std::shared_ptr<State> state = mState;
    MutexLock lock(state->mutex);
    if (state->owner == std::this_thread::get_id()) {
        std::fprintf(stderr, "SSHSession: the queue %s was asked to wait for itself.\n",
                     state->label.c_str());
        std::abort();
    }
    state->enter(lock, state->next++);
    lock.unlock();
    work();
    lock.lock();
    state->leave();
}

void SerialQueue::async(std::function<void()> work) noexcept {
    try {
        const MutexLock lock(mState->mutex);
        if (!mState->workerRuns)
            startDetachedThread([state = mState] { state->runWorker(); });
        mState->workerRuns = true;
        mState->pending.push_back({mState->next++, std::move(work)});
    } catch (const std::system_error &error) {
        log("Work for the queue " + mState->label +
            " is dropped, for lack of a thread: " + error.what());
    }
}

bool SerialQueue::isCurrent() const noexcept {
    const MutexLock lock(mState->mutex);
    return mState->owner == std::this_thread::get_id();
}

} // namespace SSHPlatform
