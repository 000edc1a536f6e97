#include "Doctor/TimeBudget.h"

#include "Platform/DetachedThread.h"
#include "Platform/Socket.h"

#include <algorithm>
#include <future>
#include <system_error>
#include <utility>

namespace SSHEngine {

using SSHPlatform::WaitFor;

TimeBudget::Milliseconds TimeBudget::left(Milliseconds most) const {
    const auto rest = std::chrono::ceil<Milliseconds>(mEnd - Clock::now());
    return mIsCancelled ? Milliseconds(0) : std::clamp(rest, Milliseconds(0), most);
}

void TimeBudget::cancel() noexcept {
    mIsCancelled = true;
    mWakeup.signal();
}

struct TimeBudget::Limit::Watch {
    SSHPlatform::Wakeup isLifted;
    std::promise<void> hasEnded;
};

TimeBudget::Limit::Limit(const TimeBudget &budget, Milliseconds most,
                         const std::function<void()> &end)
    : mWatch(std::make_shared<Watch>()) {
    try {
        SSHPlatform::startDetachedThread(
            [watch = mWatch, time = budget.left(most), wakeup = budget.wakeup(), end] {
                if (SSHPlatform::waitForSocket(watch->isLifted.descriptor(), WaitFor::Reading, time,
                                               wakeup) <= 0)
                    end();
                watch->hasEnded.set_value();
            });
    } catch (const std::system_error &) { // no thread to be had
        mWatch.reset();
    }
}

TimeBudget::Limit::~Limit() {
    if (!mWatch)
        return;
    mWatch->isLifted.signal();
    mWatch->hasEnded.get_future().wait();
}

Errand::Errand(std::function<void()> work) {
    try {
        SSHPlatform::startDetachedThread([done = mDone, work = std::move(work)]() mutable {
            std::exchange(work, nullptr)(); // what it holds is let go of before it is done
            done->isSet = true;
            done->wakeup.signal();
        });
    } catch (const std::system_error &) { // no thread to be had: it never is done
    }
}

bool Errand::isDoneWithin(const TimeBudget &budget, TimeBudget::Milliseconds most) const {
    SSHPlatform::waitForSocket(mDone->wakeup.descriptor(), WaitFor::Reading, budget.left(most),
                               budget.wakeup());
    return mDone->isSet;
}

} // namespace SSHEngine
