#pragma once

// What a session is doing, in the order of a connection's life.
enum class SSHSessionStage {
    Connect,      // host name look-up and TCP
    Handshake,    // SSH version and key exchange
    HostKey,      // known-hosts check, with the user's answer where it is needed
    Agent,        // authentication through the SSH agent
    Authenticate, // authentication by key files, password and keyboard-interactive
    Execute,      // one command
};
