#include "Auth/MethodTranscript.h"

#include "Platform/Text.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

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

std::vector<std::string> displayNames(const OfferedMethods &offered) {
    std::vector<std::string> names;
    if (offered.publicKey)
        names.emplace_back("public key exchange");
    if (offered.password)
        names.emplace_back("password");
    if (offered.keyboardInteractive)
        names.emplace_back("keyboard-interactive");
    return names;
}

} // namespace

OfferedMethods OfferedMethods::parse(const std::string &list) {
    const auto offers = [&](const char *name) { return list.find(name) != std::string::npos; };
    return {.publicKey = offers("publickey"),
            .password = offers("password"),
            .keyboardInteractive = offers("keyboard-interactive")};
}

std::string methodTranscript(const OfferedMethods &offered, const MethodErrors &errors,
                             const std::vector<std::string> &algorithms) {
    std::string text =
        "SSH could not authenticate with any of the available authentication methods.\n\n";
    text += fmt::format("Supported authentication methods:\n{}\n\n",
                        fmt::join(displayNames(offered), ", "));
    if (offered.publicKey) {
        text +=
            "Failed to authenticate by public key exchange:\n" + quotation(errors.publicKey) + "\n";
        text +=
            fmt::format("Supported key exchange algorithms:\n{}\n\n", fmt::join(algorithms, ", "));
        text += "\n";
    }
    if (offered.password)
        text += "Failed to authenticate by password:\n" + quotation(errors.password) + "\n\n";
    if (offered.keyboardInteractive)
        text += "Failed to authenticate by keyboard-interactive:\n" +
                quotation(errors.keyboardInteractive) + "\n\n";
    return text;
}
