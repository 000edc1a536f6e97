// Measures the stages of a session and, when asked to, tells them as they happen.
#pragma once

#include <SSHSession/SSHSession.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

class StageClock final : public SSHSessionObserver {
  public:
    using Milliseconds = std::chrono::duration<double, std::milli>;
    using Timings = std::vector<std::pair<std::string, Milliseconds>>;

    explicit StageClock(bool tells) : mTells(tells) {}

    // Every stage that ran, by name, in the order in which they ran.
    const Timings &timings() const { return mTimings; }

    void willBeginStage(SSHSession &session, SSHSessionStage stage) noexcept override;
    void didEndStage(SSHSession &session, SSHSessionStage stage, bool succeeded) noexcept override;
    void willChangeValueForKey(SSHSession &session, const std::string &key) noexcept override;
    void didChangeValueForKey(SSHSession &session, const std::string &key) noexcept override;

  private:
    const bool mTells;
    bool mWasConnected = false;
    std::chrono::steady_clock::time_point mBegin;
    Timings mTimings;
};
