// SPDX-License-Identifier: BSD-3-Clause

// The stages of a session, which observers are told of.
#pragma once

#include <SSHSession/SSHSessionExport.h>

// What a session is doing, in the order of a connection's life.
enum class SSHSessionStage {
    Connect,      // host name look-up and TCP
    Handshake,    // SSH version and key exchange
    HostKey,      // known-hosts check, with the user's answer where it is needed
    Agent,        // authentication through the SSH agent
    Authenticate, // authentication by key files, password and keyboard-interactive
    Execute,      // one command
};

// The name for logs and reports, such as "hostKey". Never null.
SSHSESSION_EXPORT const char *SSHSessionStageName(SSHSessionStage stage) noexcept;
