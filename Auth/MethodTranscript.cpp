#include "Auth/MethodTranscript.h"

#include "Platform/Text.h"

#include <SSHSession/PrintableText.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace SSHEngine {

namespace {

std::string quotation(const SSHErrorRef &error) {
    if (!error)
        return fmt::format("{}\n", SSHPlatform::nullText);
    std::string text = fmt::format("{}\n", SSHPlatform::textOrNull(error->localizedDescription()));
    if (const auto reason = error->localizedFailureReason())
        text += *reason + "\n";
    if (const auto suggestion = error->localizedRecoverySuggestion())
        text += *suggestion + "\n";
    return text;
}

} // namespace

std::string methodTranscript(const std::vector<MethodAttempt> &attempts) {
    std::vector<std::string> names;
    names.reserve(attempts.size());
    for (const MethodAttempt &attempt : attempts)
        names.push_back(attempt.displayName);
    std::string text =
        "SSH could not authenticate with any of the available authentication methods.\n\n";
    text += fmt::format("Supported authentication methods:\n{}\n\n", fmt::join(names, ", "));
    for (const MethodAttempt &attempt : attempts) {
        if (attempt.furtherMethods) {
            text += fmt::format("Authenticated by {} as one factor. The server wants more: {}\n\n",
                                attempt.displayName,
                                SSHPlatform::printableText(*attempt.furtherMethods, ""));
            continue;
        }
        text += fmt::format("Failed to authenticate by {}:\n{}\n", attempt.displayName,
                            quotation(attempt.error));
        if (attempt.algorithms)
            text += fmt::format("Supported key exchange algorithms:\n{}\n\n",
                                fmt::join(*attempt.algorithms, ", "));
        text += "\n";
    }
    return text;
}

} // namespace SSHEngine
