#include "Commands/Sudo.h"

#include "Platform/Text.h"

#include <fmt/format.h>

#include <optional>
#include <string_view>
#include <utility>

namespace SSHEngine {

namespace {

constexpr std::size_t successLineLength = successMarker.size() + 1; // with the echo's line end

bool saysThreeAttempts(std::string_view errorOutput) {
    return SSHPlatform::isUTF8(errorOutput) &&
           errorOutput.find("sudo: 3 incorrect password attempts") != std::string_view::npos;
}

SSHPlatform::Secret lineOf(std::string_view password) {
    std::optional<std::string> line(std::in_place);
    line->reserve(password.size() + 1);
    line->append(password).push_back('\n');
    return SSHPlatform::Secret::takenFrom(line);
}

} // namespace

std::string sudoCommand(const std::string &command) {
    std::string escaped;
    for (const char byte : command)
        (byte == '"' ? escaped.append("\\") : escaped).push_back(byte);
    return fmt::format("/usr/bin/sudo -S -p '{}' /bin/sh -c \"echo '{}'; {}\"", promptMarker,
                       successMarker, escaped);
}

SudoConversation::SudoConversation(std::string_view password, Clock::time_point now)
    : mLastActivity(now), mAnswer(lineOf(password)) {}

SudoConversation::Outcome SudoConversation::examine(SSHPlatform::ByteBuffer &output,
                                                    SSHPlatform::ByteBuffer &errorOutput,
                                                    bool keepReading, Clock::time_point now) {
    const bool isAccepted = output.view().starts_with(successMarker);
    bool isAsked = false;
    if (!errorOutput.empty()) {
        mLastActivity = now; // while it holds anything, old or new
        if (!keepReading && saysThreeAttempts(errorOutput.view()))
            return Outcome::Refused;
        // Once sudo has accepted, a marker is the command's own text, and the password is not for
        // the command to read. What sudo wrote before the prompt, such as a complaint about the
        // previous password, goes with it.
        isAsked = !isAccepted && errorOutput.view().ends_with(promptMarker);
        if (isAsked)
            errorOutput.clear();
    }
    // The line end may come in a packet of its own; it is not the command's.
    if (isAccepted && (output.size() >= successLineLength || !keepReading)) {
        output.removeFromFront(successLineLength);
        return Outcome::Accepted;
    }
    if (isAsked)
        return Outcome::Asked;
    return now - mLastActivity > longestSilence ? Outcome::TimedOut : Outcome::Pending;
}

std::string SudoConversation::refusal(std::string_view /*errorOutput*/) const {
    return "The SSH user was not able to use sudo. The password was not accepted.";
}

} // namespace SSHEngine
