#include <SSHSession/RunLoop.h>

#include <SSHSession/Mutex.h>

#include "Platform/ProcessMainThread.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

#include <mutex>
#include <utility>

namespace SSHPlatform {

struct RunLoop::State {
    asio::io_context context;
    asio::executor_work_guard<asio::io_context::executor_type> keepsRunning{context.get_executor()};
};

namespace {

using Context = std::shared_ptr<asio::io_context>;

// The pending wait holds this object until the loop next runs, which may be never; the action is
// therefore released by `invalidate` itself, not by the loop.
class AsioTimer final : public RepeatingTimer, public std::enable_shared_from_this<AsioTimer> {
  public:
    AsioTimer(Context context, std::chrono::milliseconds interval, std::function<void()> action)
        : mContext(std::move(context)), mTimer(*mContext), mInterval(interval),
          mAction(std::make_shared<std::function<void()>>(std::move(action))) {}

    void schedule() {
        const std::lock_guard lock(mMutex);
        mTimer.expires_after(mInterval);
        wait();
    }

    void invalidate() noexcept override {
        std::shared_ptr<std::function<void()>> released;
        const std::lock_guard lock(mMutex);
        released.swap(mAction);
        mTimer.cancel();
    }

  private:
    void wait() {
        mTimer.async_wait([self = shared_from_this()](const asio::error_code &) { self->fire(); });
    }

    void fire() {
        std::unique_lock lock(mMutex);
        const auto action = mAction;
        if (!action)
            return;
        mTimer.expires_after(mInterval);
        wait();
        lock.unlock();
        (*action)();
    }

    const Context mContext;
    std::mutex mMutex;
    asio::steady_timer mTimer;
    const std::chrono::milliseconds mInterval;
    std::shared_ptr<std::function<void()>> mAction;
};

} // namespace

const std::shared_ptr<RunLoop> &RunLoop::main() noexcept {
    static const auto *const loop = new std::shared_ptr<RunLoop>(new RunLoop);
    return *loop;
}

RunLoop::RunLoop() : mState(std::make_shared<State>()) {}

RunLoop::~RunLoop() = default;

void RunLoop::run() noexcept {
    mState->context.run();
    mState->context.restart();
}

void RunLoop::runFor(std::chrono::milliseconds duration) noexcept {
    mState->context.run_for(duration);
    mState->context.restart();
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
    const Context context(mState, &mState->context);
    const auto timer = std::make_shared<AsioTimer>(context, interval, std::move(action));
    timer->schedule();
    return timer;
}

} // namespace SSHPlatform
