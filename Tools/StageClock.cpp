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

const char *stageName(SSHSessionStage stage) {
    switch (stage) {
    case SSHSessionStage::Connect:
        return "connect";
    case SSHSessionStage::Handshake:
        return "handshake";
    case SSHSessionStage::HostKey:
        return "hostKey";
    case SSHSessionStage::Agent:
        return "agent";
    case SSHSessionStage::Authenticate:
        return "authenticate";
    case SSHSessionStage::Execute:
        return "execute";
    }
    return "unknown";
}

void StageClock::willBeginStage(SSHSession & /*session*/, SSHSessionStage stage) noexcept {
    if (mTells)
        tell(std::string(stageName(stage)) + ": begins");
    mBegin = std::chrono::steady_clock::now();
}

void StageClock::didEndStage(SSHSession & /*session*/, SSHSessionStage stage,
                             bool succeeded) noexcept {
    const Milliseconds time = std::chrono::steady_clock::now() - mBegin;
    mTimings.emplace_back(stageName(stage), time);
    if (mTells)
        tell(std::string(stageName(stage)) + (succeeded ? ": done after " : ": failed after ") +
             decimal(time));
}

void StageClock::willChangeValueForKey(SSHSession &session, const std::string & /*key*/) noexcept {
    mWasConnected = session.isConnected();
}

void StageClock::didChangeValueForKey(SSHSession &session, const std::string &key) noexcept {
    if (mTells && mWasConnected != session.isConnected())
        tell(key + ": " + truth(mWasConnected) + " -> " + truth(session.isConnected()));
}
