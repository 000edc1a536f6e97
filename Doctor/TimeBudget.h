// The time that an examination may take, as a whole and for each of its waits.
#pragma once

#include "Platform/Wakeup.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

namespace SSHEngine {

class TimeBudget {
  public:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    explicit TimeBudget(Milliseconds total) : mEnd(Clock::now() + total) {}

    // What is left, but no more than `most`. Never negative.
    Milliseconds left(Milliseconds most) const;

    // The time has passed, or somebody has cancelled.
    bool isOver() const { return isCancelled() || Clock::now() >= mEnd; }
    bool isCancelled() const { return mIsCancelled; }
    void cancel() noexcept; // any thread

    // Becomes readable when somebody cancels; for waits.
    int wakeup() const noexcept { return mWakeup.descriptor(); }

    // While an object of this kind lives, `end` is called, once and on another thread, when the
    // time is over, or this part of it. Where the system has no thread to give, there is no limit.
    class Limit {
      public:
        Limit(const TimeBudget &budget, Milliseconds most, const std::function<void()> &end);
        ~Limit(); // waits for an `end` that has begun
        Limit(const Limit &) = delete;
        Limit &operator=(const Limit &) = delete;

      private:
        struct Watch;
        std::shared_ptr<Watch> mWatch;
    };

  private:
    const Clock::time_point mEnd;
    std::atomic<bool> mIsCancelled = false;
    const SSHPlatform::Wakeup mWakeup;
};

// Work on a thread of its own, which is left behind when it takes too long. What the work uses must
// be its own; once it is done, it is seen by whoever has waited for it.
class Errand {
  public:
    explicit Errand(std::function<void()> work);
    bool isDoneWithin(const TimeBudget &budget, TimeBudget::Milliseconds most) const;

  private:
    struct Done {
        SSHPlatform::Wakeup wakeup;
        std::atomic<bool> isSet = false; // a pipe alone hands no memory over
    };
    const std::shared_ptr<Done> mDone = std::make_shared<Done>();
};

} // namespace SSHEngine
