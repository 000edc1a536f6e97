// How long a user has been asked, which no time limit counts.
#pragma once

#include <SSHSession/Mutex.h>

#include <chrono>
#include <optional>

namespace SSHEngine {

// Any thread.
class UserTime {
  public:
    using Clock = std::chrono::steady_clock;

    Clock::duration total() const {
        const SSHPlatform::MutexLock lock(mMutex);
        return mBefore + (mSince ? Clock::now() - *mSince : Clock::duration(0));
    }

    // The user is asked while an object of this kind lives, one at a time.
    class Question {
      public:
        explicit Question(UserTime &time) : mTime(time) {
            const SSHPlatform::MutexLock lock(mTime.mMutex);
            mTime.mSince = Clock::now();
        }
        ~Question() {
            const Clock::duration all = mTime.total();
            const SSHPlatform::MutexLock lock(mTime.mMutex);
            mTime.mBefore = all;
            mTime.mSince.reset();
        }
        Question(const Question &) = delete;
        Question &operator=(const Question &) = delete;

      private:
        UserTime &mTime;
    };

  private:
    mutable SSHPlatform::Mutex mMutex;
    Clock::duration mBefore SSHSESSION_GUARDED_BY(mMutex){0};
    std::optional<Clock::time_point> mSince SSHSESSION_GUARDED_BY(mMutex);
};

} // namespace SSHEngine
