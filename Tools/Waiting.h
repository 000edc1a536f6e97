// Tells a person at the terminal what the program waits for.
#pragma once

#include <SSHSession/SSHSession.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <thread>

class Waiting {
  public:
    // With `showsProgress`, how far a long transfer is.
    Waiting(std::shared_ptr<SSHSession> session, bool showsProgress);
    ~Waiting();
    Waiting(const Waiting &) = delete;
    Waiting &operator=(const Waiting &) = delete;

  private:
    using Clock = std::chrono::steady_clock;

    void watch();
    void look();
    void tellSilence(const SSHFacts &facts);
    void showProgress(const SSHCommandFacts &command);

    const std::shared_ptr<SSHSession> mSession;
    const bool mShowsProgress;
    Clock::time_point mSilentSince;
    Clock::time_point mNextWord;
    std::size_t mMoved = 0; // bytes of input and output, as they were last seen
    std::mutex mMutex;
    std::condition_variable mEnds;
    bool mHasEnded = false; // guarded by it
    std::thread mThread;
};
