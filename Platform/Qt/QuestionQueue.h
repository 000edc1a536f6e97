// Work that other threads hand to the main thread and wait for, one piece at a time in the order in
// which it came: while one prompt is open, whoever asked for it, the next waits for its turn
// instead of covering it.
#pragma once

#include <SSHSession/Mutex.h>

#include <deque>
#include <functional>

namespace SSHPlatform {

class QuestionQueue {
  public:
    // Any thread but the main one. Calls `wake`, which must make the main thread call `serve` soon,
    // and waits until `work` is done. Answers false, with `work` not run, once the queue has ended.
    bool ask(const std::function<void()> &work, const std::function<void()> &wake);

    // Main thread: does a piece of its own at once, which nobody else's interrupts. Calls `wake`
    // when somebody waits afterwards.
    void askHere(const std::function<void()> &work, const std::function<void()> &wake);

    // Main thread: does what is waiting. Does nothing inside a piece of work.
    void serve();

    // Sends everybody away who waits or will come. Work that is running is left to finish.
    void end();

    bool hasEnded() const;

  private:
    enum class State { Waiting, Done, SentAway };
    // Lives on the stack of the thread that asks.
    struct Question {
        const std::function<void()> *work = nullptr;
        State state = State::Waiting;
    };

    mutable Mutex mMutex;
    ConditionVariable mAnswered;
    std::deque<Question *> mWaiting SSHSESSION_GUARDED_BY(mMutex); // and what they point to
    bool mIsServing SSHSESSION_GUARDED_BY(mMutex) = false;
    bool mHasEnded SSHSESSION_GUARDED_BY(mMutex) = false;
};

} // namespace SSHPlatform
