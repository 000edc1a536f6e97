// SPDX-License-Identifier: BSD-3-Clause

// One attempt to log in, as it went.
#pragma once

#include <SSHSession/SSHSessionExport.h>

#include <string>
#include <vector>

// How it ended.
enum class SSHAttemptResult {
    Accepted,         // the user is in
    AcceptedInPart,   // as one factor of several; `wanted` says what else
    Refused,          // by the server
    Expired,          // the server wants a new password
    SignatureRefused, // the server knows the key, and was not content with its signature
    NotSigned,        // the server knows the key, and the agent did not sign with it
    NotGiven,         // nobody gave the password, the pass phrase or the answer
    WrongPassphrase,  // for this key file
    Missing,          // there is no such file
    Unusable,         // `remark` says why; nothing was sent
    Ended,            // the connection, before the server had answered
};

struct SSHAttempt {
    std::string method; // "publickey", "password" (RFC 4252) or "keyboard-interactive" (RFC 4256)
    // Of a key: its file's path, or the agent's comment, which may hold anything.
    std::string key;
    std::string keyType;        // "ssh-ed25519"; empty where it is not known
    std::string keyFingerprint; // "SHA256:..."; empty where it is not known
    bool isFromAgent = false;
    SSHAttemptResult result = SSHAttemptResult::Refused;
    std::string remark;
    // What the server asked (keyboard-interactive), at most ten, each cut to 200 bytes.
    std::vector<std::string> questions;
    std::vector<std::string> wanted; // the methods that the server named after it, where it did
};

// The name for logs and reports, such as "acceptedInPart". Never null.
SSHSESSION_EXPORT const char *SSHAttemptResultName(SSHAttemptResult result) noexcept;
