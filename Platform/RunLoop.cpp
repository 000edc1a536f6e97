#include <SSHSession/RunLoop.h>

#include <SSHSession/Mutex.h>

#include "Platform/ProcessMainThread.h"
#include "Platform/TimerList.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>

#include <algorithm>
#include <atomic>
#include <utility>

namespace SSHPlatform {

struct RunLoop::State {
    // A loop that waits for its next timer takes note of a new one. Where no loop waits, one of
    // these is enough for all to come.
    void wakeUp() {
        if (!isWaking.exchange(true))
            asio::post(context, [this] { isWaking = false; });
    }

    void serveUntil(TimerList::Clock::time_point end) {
        while (!context.stopped() && TimerList::Clock::now() < end) {
            if (const auto action = timers->takeDue()) {
                (*action)();
                context.poll_one();
            } else {
                context.run_one_until(std::min(end, timers->nextDue()));
            }
        }
        context.restart();
    }

    asio::io_context context;
    asio::executor_work_guard<asio::io_context::executor_type> keepsRunning{context.get_executor()};
    const std::shared_ptr<TimerList> timers = std::make_shared<TimerList>();
    std::atomic<bool> isWaking = false;
};

const std::shared_ptr<RunLoop> &RunLoop::main() noexcept {
    static const auto *const loop = new std::shared_ptr<RunLoop>(new RunLoop);
    return *loop;
}

RunLoop::RunLoop() : mState(std::make_shared<State>()) {}

RunLoop::~RunLoop() = default;

void RunLoop::run() noexcept {
    mState->serveUntil(TimerList::Clock::time_point::max());
}

void RunLoop::runFor(std::chrono::milliseconds duration) noexcept {
    mState->serveUntil(TimerList::Clock::now() + duration);
}

void RunLoop::stop() noexcept {
    mState->context.stop();
}

bool RunLoop::isMainThread() const noexcept {
    return isProcessMainThread();
}

bool RunLoop::runAndWait(const std::function<void()> &work) noexcept {
    if (isMainThread()) {
        work();
        return true;
    }
    Mutex mutex;
    ConditionVariable finished;
    bool done = false;
    asio::post(mState->context, [&] {
        work();
        const MutexLock workLock(mutex);
        done = true;
        finished.notifyOne();
    });
    MutexLock lock(mutex);
    while (!done)
        finished.wait(lock);
    return true;
}

std::shared_ptr<RepeatingTimer> RunLoop::scheduleRepeating(std::chrono::milliseconds interval,
                                                           std::function<void()> action) noexcept {
    auto timer = mState->timers->add(interval, std::move(action));
    mState->wakeUp();
    return timer;
}

} // namespace SSHPlatform
