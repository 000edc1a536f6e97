#include "Platform/SerialQueue.h"

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
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

    void enter(std::unique_lock<std::mutex> &lock, Ticket ticket) {
        turn.wait(lock, [&] { return serving == ticket; });
        owner = std::this_thread::get_id();
    }

    void leave() {
        owner = {};
        ++serving;
        turn.notify_all();
    }

    void runWorker();

    const std::string label;
    std::mutex mutex;
    std::condition_variable turn;
    Ticket next = 0;
    Ticket serving = 0;
    std::thread::id owner;
    std::deque<Queued> pending;
    bool workerRuns = false;
};

void SerialQueue::State::runWorker() {
    std::vector<std::function<void()>> finished;
    std::unique_lock lock(mutex);
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
    std::unique_lock lock(state->mutex);
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
    const std::lock_guard lock(mState->mutex);
    mState->pending.push_back({mState->next++, std::move(work)});
    if (std::exchange(mState->workerRuns, true))
        return;
    std::thread([state = mState] { state->runWorker(); }).detach();
}

bool SerialQueue::isCurrent() const noexcept {
    const std::lock_guard lock(mState->mutex);
    return mState->owner == std::this_thread::get_id();
}

} // namespace SSHPlatform
