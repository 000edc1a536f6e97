#include "Commands/Sudo.h"

#include "Platform/Text.h"

#include <fmt/format.h>

#include <string_view>
#include <utility>

namespace {

constexpr std::string_view promptMarker = "#SSHSessionEnterPassword^";
constexpr std::string_view successMarker = "#SSHSessionSudoSuccess^";
constexpr std::size_t successLineLength = successMarker.size() + 1; // with the echo's line end
constexpr std::chrono::seconds longestSilence(10);

bool saysThreeAttempts(std::string_view errorOutput) {
    return SSHPlatform::isUTF8(errorOutput) &&
           errorOutput.find("sudo: 3 incorrect password attempts") != std::string_view::npos;
}

} // namespace

std::string sudoCommand(const std::string &command) {
    std::string escaped;
    for (const char byte : command)
        (byte == '"' ? escaped.append("\\") : escaped).push_back(byte);
    return fmt::format("/usr/bin/sudo -S -p '{}' /bin/sh -c \"echo '{}'; {}\"", promptMarker,
                       successMarker, escaped);
}

SudoConversation::SudoConversation(std::string password, Clock::time_point now)
    : mPassword(std::move(password)), mLastActivity(now) {}

SudoConversation::Outcome SudoConversation::examine(SSHPlatform::ByteBuffer &output,
                                                    SSHPlatform::ByteBuffer &errorOutput,
                                                    SSHPlatform::ByteBuffer &input,
                                                    bool keepReading, Clock::time_point now) {
    const bool isAccepted = output.view().starts_with(successMarker);
    if (!errorOutput.empty()) {
        mLastActivity = now; // while it holds anything, old or new
        if (!keepReading && saysThreeAttempts(errorOutput.view()))
            return Outcome::Refused;
        // Once sudo has accepted, a marker is the command's own text, and the password is not for
        // the command to read.
        if (!isAccepted && errorOutput.view().ends_with(promptMarker))
            answerPrompt(errorOutput, input);
    }
    // The line end may come in a packet of its own; it is not the command's.
    if (isAccepted && (output.size() >= successLineLength || !keepReading)) {
        output.removeFromFront(successLineLength);
        return Outcome::Accepted;
    }
    return now - mLastActivity > longestSilence ? Outcome::TimedOut : Outcome::Pending;
}

// What sudo wrote before the prompt, such as a complaint about the previous password, goes with it.
void SudoConversation::answerPrompt(SSHPlatform::ByteBuffer &errorOutput,
                                    SSHPlatform::ByteBuffer &input) const {
    errorOutput.clear();
    input.append(mPassword);
    input.append("\n");
}
