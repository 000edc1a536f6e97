// SPDX-License-Identifier: BSD-3-Clause

// What is known of a session's last `start` and of the commands since, for findings and reports: a
// value that holds what the session saw, and what can be looked at on this computer. No secret is
// in it. Texts of the server's, and of files, may hold anything: show them with
// SSHPlatform::printableText.
#pragma once

#include <SSHSession/SSHAttempt.h>
#include <SSHSession/SSHError.h>
#include <SSHSession/SSHSessionOptions.h>
#include <SSHSession/SSHSessionStage.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// One address of the host, and what became of the attempt to connect to it.
struct SSHAddressFacts {
    std::string address; // in numbers, without the port
    int error = 0;       // errno; 0 where it was not tried, still waits or has answered
    bool isConnected = false;
};

// Names of RFC 4253, section 7.1, in the order in which one side prefers them; or, of what was
// agreed on, one of each.
struct SSHAlgorithms {
    std::vector<std::string> keyExchange;
    std::vector<std::string> hostKey;
    std::vector<std::string> cipherToServer, cipherToClient;
    std::vector<std::string> macToServer, macToClient;
    std::vector<std::string> compressionToServer, compressionToClient;
};

// What the server said in the clear.
struct SSHServerFacts {
    bool hasSpoken = false;
    bool hasHungUp = false;  // it has ended the connection, or a network has
    int failure = 0;         // errno of the first call on the connection's socket that failed
    std::string linesBefore; // what came before the version, or in its place; at most 1 kB
    std::string version;     // "SSH-2.0-OpenSSH_9.2p1"; empty until it has come
    std::optional<SSHAlgorithms> offer;  // its list of algorithms, once that has come
    std::optional<SSHAlgorithms> agreed; // once the handshake has succeeded
};

// What known hosts hold of the server's key.
enum class SSHHostKeyStanding { Unchecked, Unknown, Changed, Match, Revoked, Failed };

// A line of a known-hosts file that bears on the host.
struct SSHKnownHostsLine {
    std::string file;
    std::size_t number = 0; // from 1
    std::string name;       // as it stands there, such as "[db.example.com]:2222"
    std::string keyType;
    std::string fingerprint;
    bool isForThisPort = false; // else the host is named with another port, or without one
    bool isRevoked = false;
};

// The server's key, and what became of the question whether to trust it.
struct SSHHostKeyFacts {
    std::string type;        // "ssh-ed25519"
    std::string fingerprint; // "SHA256:..."
    SSHHostKeyStanding standing = SSHHostKeyStanding::Unchecked;
    bool wasAsked = false;   // somebody was asked about it, and has answered
    bool isAccepted = false; // by a file or by the user
    int recordFailure = 0;   // the code with which an accepted key was not recorded
};

// A message of the server's that ended the connection (RFC 4253, section 11.1).
struct SSHDisconnectFacts {
    int code = 0;
    std::string message;
};

// The last command, or the one that is running.
struct SSHCommandFacts {
    bool hasAdminPassword = false; // so that it runs through sudo
    bool hasInput = false;         // some was given
    bool isRunning = false;
    bool hasStarted = false;   // the server has taken the request
    bool waitsForSudo = false; // sudo has not accepted yet
    // Of standard output and standard error, that have arrived; once sudo has accepted, without
    // what came before.
    std::size_t outputBytes = 0;
    // Handed to the connection, and in all; the latter is 0 where it is not known before its end.
    std::size_t inputBytes = 0, inputSize = 0;
    bool isHeldUp = false; // at this moment, by the host's own sink or source
    std::chrono::steady_clock::time_point lastActivity{};
    std::string outputBegin; // at most 1 kB
    std::string errorEnd;    // of standard error, at most 1 kB
    bool hasEnded = false;   // in order; then
    int exitStatus = 0;
    std::string exitSignal; // empty: none
};

// --- What can be looked at on this computer

// What a file that should hold a private key is.
enum class SSHKeyFileState {
    Missing,
    Unreadable, // `detail` says why
    NoKey,      // neither of the others
    PublicKey,
    PuTTY,   // a private key in that program's own format
    Exposed, // other users have rights to it: `mode`
    OnToken, // a hardware token holds the secret part
    UnknownCipher,
    Encrypted,
    Plain,
};

// What the file beside it whose name ends in ".pub" holds: the same key, or another one.
enum class SSHPublicFileState { Missing, Unreadable, Foreign, Same, Unknown };

// A file with a key of the user's.
struct SSHKeyFileFacts {
    std::string path;
    bool isGiven = false; // as the session's key file; else one of ~/.ssh
    bool isTried = false; // by a session with these options, if it is usable
    SSHKeyFileState state = SSHKeyFileState::Missing;
    std::string detail;
    unsigned mode = 0; // permission bits
    std::string type;  // where the file, or its public file, tells
    std::string fingerprint;
    SSHPublicFileState publicFile = SSHPublicFileState::Unknown;
    bool isInAgent = false;
};

// A key that the agent holds.
struct SSHAgentIdentity {
    std::string comment, type, fingerprint;
};

// The SSH agent, and what it answered.
struct SSHAgentFacts {
    std::string socket;  // as SSH_AUTH_SOCK names it; empty: no agent is named
    std::string problem; // why it could not be asked; empty: it answered
    std::vector<SSHAgentIdentity> identities;
};

// The user's file of known hosts.
struct SSHKnownHostsFacts {
    std::string path;          // of the user's file
    bool hasDirectory = false; // ~/.ssh
    bool exists = false;
    std::string problem;                  // why it cannot be read; empty: it can
    bool isWritable = false;              // as well as its directory
    std::vector<std::size_t> badLines;    // numbers of lines that are no entries
    std::vector<SSHKnownHostsLine> lines; // that name the host, whatever the port
};

// All of that together.
struct SSHLocalFacts {
    std::vector<SSHKeyFileFacts> keyFiles;
    SSHAgentFacts agent;
    SSHKnownHostsFacts knownHosts;
};

struct SSHFacts {
    // --- What was asked for
    std::string host, user;
    std::uint16_t port = 0;
    bool hasPassword = false;
    bool isPasswordEmpty = false;
    std::string keyFilePath; // empty: none
    SSHSessionOptions options;

    // --- What came of it
    SSHSessionStage stage = SSHSessionStage::Connect; // the last one that began
    bool isStageUnderWay = false;
    bool isUserAsked = false;                             // at this moment
    std::chrono::steady_clock::time_point userAnswered{}; // or let a question pass, the last time
    std::chrono::steady_clock::time_point stageBegin{};
    SSHErrorRef error; // of the last `start` or `execute`; null: it succeeded, or is under way

    std::vector<SSHAddressFacts> addresses;
    int lookUpCode = 0; // of getaddrinfo(3)
    SSHServerFacts server;
    SSHAlgorithms known; // the library's own, once the handshake has begun
    SSHHostKeyFacts hostKey;
    std::vector<std::string> methods; // that the server offered first; empty: it was not asked
    std::vector<SSHAttempt> attempts;
    std::string banner;
    std::optional<SSHDisconnectFacts> disconnect;
    SSHCommandFacts command;

    std::optional<SSHLocalFacts> local; // once somebody has looked
};
