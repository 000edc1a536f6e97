// The account of a failed authentication, as the user reads it in the error's failure reason.
#pragma once

#include <SSHSession/SSHError.h>

#include <string>
#include <vector>

// What the server offers, of the methods known here.
struct OfferedMethods {
    bool publicKey = false;
    bool password = false;
    bool keyboardInteractive = false;

    // From the server's comma-separated list, by plain substring tests.
    static OfferedMethods parse(const std::string &list);
};

// Why each method failed; null where it had nothing to say.
struct MethodErrors {
    SSHErrorRef publicKey;
    SSHErrorRef password;
    SSHErrorRef keyboardInteractive;
};

// `algorithms` are the library's host key algorithms. Their heading speaks of key exchange, the
// words that users and support staff know.
std::string methodTranscript(const OfferedMethods &offered, const MethodErrors &errors,
                             const std::vector<std::string> &algorithms);
