// SPDX-License-Identifier: BSD-3-Clause

// Mutexes whose use clang checks at compile time (its -Wthread-safety, which this project's own
// build turns on): data says which mutex guards it, a function which mutexes it wants held or not
// held, and what contradicts that does not compile. Other compilers see nothing of it.
//
//     Mutex mMutex;
//     int mCount SSHSESSION_GUARDED_BY(mMutex) = 0;
//
//     const MutexLock lock(mMutex);
//     ++mCount;
//
// Source: "Thread Safety Analysis" in clang's manual.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define SSHSESSION_THREAD_ANNOTATION(annotation) __attribute__((annotation))
#else
#define SSHSESSION_THREAD_ANNOTATION(annotation)
#endif

// Of data: read and written, or what it points to, only with the mutex held.
#define SSHSESSION_GUARDED_BY(mutex) SSHSESSION_THREAD_ANNOTATION(guarded_by(mutex))
#define SSHSESSION_PT_GUARDED_BY(mutex) SSHSESSION_THREAD_ANNOTATION(pt_guarded_by(mutex))

// Of functions, and of closures between `()` and `{`: callers hold the mutexes; callers do not.
#define SSHSESSION_REQUIRES(...) SSHSESSION_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define SSHSESSION_EXCLUDES(...) SSHSESSION_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))

// Of functions that lock or unlock, that hand a mutex out, and that the analysis cannot follow.
#define SSHSESSION_ACQUIRE(...) SSHSESSION_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define SSHSESSION_RELEASE(...) SSHSESSION_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define SSHSESSION_TRY_ACQUIRE(...)                                                                \
    SSHSESSION_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define SSHSESSION_ASSERT_CAPABILITY(mutex) SSHSESSION_THREAD_ANNOTATION(assert_capability(mutex))
#define SSHSESSION_RETURN_CAPABILITY(mutex) SSHSESSION_THREAD_ANNOTATION(lock_returned(mutex))
#define SSHSESSION_NO_THREAD_SAFETY_ANALYSIS SSHSESSION_THREAD_ANNOTATION(no_thread_safety_analysis)

// Of classes: what can be held, and what holds it from its constructor to its destructor.
#define SSHSESSION_CAPABILITY(name) SSHSESSION_THREAD_ANNOTATION(capability(name))
#define SSHSESSION_SCOPED_CAPABILITY SSHSESSION_THREAD_ANNOTATION(scoped_lockable)

namespace SSHPlatform {

// A std::mutex that the analysis knows.
class SSHSESSION_CAPABILITY("mutex") Mutex {
  public:
    void lock() SSHSESSION_ACQUIRE() { mMutex.lock(); }
    void unlock() SSHSESSION_RELEASE() { mMutex.unlock(); }

  private:
    friend class MutexLock;
    std::mutex mMutex;
};

// Holds a mutex while it lives, but for the time between `unlock` and `lock`.
class SSHSESSION_SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(Mutex &mutex) SSHSESSION_ACQUIRE(mutex) : mLock(mutex.mMutex) {}
    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;
    ~MutexLock() SSHSESSION_RELEASE() = default;

    void unlock() SSHSESSION_RELEASE() { mLock.unlock(); }
    void lock() SSHSESSION_ACQUIRE() { mLock.lock(); }

  private:
    friend class ConditionVariable;
    std::unique_lock<std::mutex> mLock;
};

// Lets a thread that holds a mutex sleep without it. Waking up may have no reason: wait in a loop,
// `while (!ready) condition.wait(lock);`, which the analysis, unlike a closure, can follow.
class ConditionVariable {
  public:
    void wait(MutexLock &lock) { mCondition.wait(lock.mLock); }

    // Answers false when `deadline` has passed.
    template <typename Clock, typename Duration>
    bool waitUntil(MutexLock &lock, const std::chrono::time_point<Clock, Duration> &deadline) {
        return mCondition.wait_until(lock.mLock, deadline) == std::cv_status::no_timeout;
    }

    void notifyOne() noexcept { mCondition.notify_one(); }
    void notifyAll() noexcept { mCondition.notify_all(); }

  private:
    std::condition_variable mCondition;
};

} // namespace SSHPlatform
