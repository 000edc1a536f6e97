// One check of a server's host key, as it passes between the calling thread, the session queue and
// the main thread. It lives as long as the check; each step uses it while the others wait.
#pragma once

#include "Identity/KnownHostsLines.h"

#include <SSHSession/SSHFacts.h>

#include <libssh2.h>

#include <cstdint>
#include <optional>
#include <string>

class SSHSession_libssh2;

namespace SSHEngine {

class Connection;

struct HostKeyCheck {
    std::int32_t checkResult = LIBSSH2_KNOWNHOST_CHECK_NOTFOUND; // 0 after the user has accepted
    std::int32_t hostKeyType = LIBSSH2_HOSTKEY_TYPE_UNKNOWN;
    std::string hostPublicKey;   // in the wire encoding of RFC 4253, section 6.6
    std::string hostFingerprint; // the same in base64, for the user
    // Made of the connection's session, which therefore must live as long as this does.
    LIBSSH2_KNOWNHOSTS *knownHosts = nullptr;
    std::int32_t readError = 0; // the library's code when the known-hosts file could not be read
    std::string knownHostsPath;
    std::string mismatchPath; // of the file with another key of the host
    std::string failure =     // the reason when `checkResult` is a failure
        "Could not check against known_hosts because libssh2_knownhost_checkp failed.";
    SSHHostKeyFacts facts;
    std::optional<KnownHostKey> key; // where every type of key is known; then it is recorded so
};

// Asks the user whether to trust the server, and records a trusted key. Main thread. Sets
// `checkResult` to 0 when the user accepts.
void confirmHostKey(const Connection &connection, HostKeyCheck &check);

} // namespace SSHEngine
