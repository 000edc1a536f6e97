// The account of a failed authentication, as the user reads it in the error's failure reason.
#pragma once

#include <SSHSession/SSHError.h>

#include <optional>
#include <string>
#include <vector>

namespace SSHEngine {

// One method that the server offers, and why it failed.
struct MethodAttempt {
    std::string displayName;
    SSHErrorRef error; // null where it had nothing to say
    // The library's host key algorithms, which follow the account of the keys. Their heading speaks
    // of key exchange, the words that users and support staff know.
    std::optional<std::vector<std::string>> algorithms = std::nullopt;
    // Where the server has taken the method as one factor: its list of those that it wants then.
    std::optional<std::string> furtherMethods = std::nullopt;
};

// `attempts` in the order in which they were made.
std::string methodTranscript(const std::vector<MethodAttempt> &attempts);

} // namespace SSHEngine
