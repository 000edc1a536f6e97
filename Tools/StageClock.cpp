#include "StageClock.h"

#include "Output.h"

#include <array>
#include <cstdio>

namespace {

std::string decimal(StageClock::Milliseconds time) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f ms", time.count());
    return text.data();
}

std::string truth(bool value) {
    return value ? "true" : "false";
}

} // namespace

void StageClock::willBeginStage(SSHSession & /*session*/, SSHSessionStage stage) noexcept {
    if (mTells)
        tell(std::string(SSHSessionStageName(stage)) + ": begins");
    mBegin = std::chrono::steady_clock::now();
}

void StageClock::didEndStage(SSHSession & /*session*/, SSHSessionStage stage,
                             bool succeeded) noexcept {
    const Milliseconds time = std::chrono::steady_clock::now() - mBegin;
    mTimings.emplace_back(SSHSessionStageName(stage), time);
    if (mTells)
        tell(std::string(SSHSessionStageName(stage)) +
             (succeeded ? ": done after " : ": failed after ") + decimal(time));
}

void StageClock::willChangeValueForKey(SSHSession &session, const std::string & /*key*/) noexcept {
    mWasConnected = session.isConnected();
}

void StageClock::didChangeValueForKey(SSHSession &session, const std::string &key) noexcept {
    if (mTells && mWasConnected != session.isConnected())
        tell(key + ": " + truth(mWasConnected) + " -> " + truth(session.isConnected()));
}
