// SPDX-License-Identifier: BSD-3-Clause

// What made an operation fail, to branch on. Texts are for people; this is for programs.
#pragma once

#include <SSHSession/SSHSessionExport.h>

enum class SSHErrorCause {
    Unknown, // none of the others, or one that cannot be told

    // --- Connecting
    NameNotFound,     // the name server knows no such host
    NameServerFailed, // no name server answered, or it could not
    NoUsableAddress,  // the host has addresses, none of a family that the session tries
    Refused,          // nobody listens on this port
    Unreachable,      // no route, or a router or a firewall said no
    ConnectTimedOut,  // nobody answered
    NoSocket,         // this computer could not make a socket

    // --- The handshake
    ClosedEarly,         // the server hung up before it had said that it speaks SSH
    NotSSH,              // something else than SSH answered
    HandshakeTimedOut,   // the option handshakeTimeout has passed
    NoCommonKeyExchange, // nothing in common of this kind (RFC 4253, section 7.1)
    NoCommonHostKey,
    NoCommonCipher,
    NoCommonMAC,
    NoCommonCompression,
    HandshakeFailed, // anything else

    // --- The host key
    HostKeyUnknownDeclined, // by the user
    HostKeyUnknownUnasked,  // nobody was there to ask, or has answered
    HostKeyChangedDeclined,
    HostKeyChangedUnasked,
    HostKeyRevoked,
    HostKeyCheckFailed, // it could not be compared

    // --- Logging in
    MethodsUntold,    // the server did not say how to log in
    NoWayIn,          // it offers nothing that the session can use or has something for
    PasswordMissing,  // it wants one, and none was given
    PasswordRefused,  // by any of the methods that use one
    PasswordExpired,  // the server wants a new one
    AnswersMissing,   // it has questions beyond the password, and nobody answered them
    AnswersRefused,   // to the server's questions, which were not the password alone
    KeyRefused,       // the server knows none of the keys that were offered
    KeyMissing,       // the file is not there
    KeyUnreadable,    // the file is, and cannot be used
    KeyEncrypted,     // no pass phrase, or not the right one
    SignatureRefused, // the server knows the key, and was not content with its signature
    AgentFailed,      // it could not be asked
    MoreWanted,       // one factor was taken, and another is missing
    LogInRefused,     // several methods had something to offer, and none let the user in
    LogInTimedOut,    // the option logInTimeout has passed

    // --- Commands
    NotConnected,
    SessionRefused, // the server opens no channel for commands
    CommandRefused, // it opens one, and runs no command on it
    CommandTooLong,
    InputUnreadable, // the descriptor that the command's input should come from
    CommandTimedOut, // the option commandTimeout has passed
    CommandSilent,   // the option silenceTimeout has passed
    SudoRefused,     // by sudo's own words
    SudoSilent,      // it never asked, or never answered

    // --- At any time
    ConnectionLost,       // without a word
    DisconnectedByServer, // with a message (RFC 4253, section 11.1)
    ServerUnresponsive,   // keepalives were not answered, or what was sent was not taken
    ServerMisbehaved,     // it sent what no honest server sends
    Cancelled,
    Stopped,
    AlreadyStarting,
    NoMemory,
};

// The name for logs and reports, such as "nameNotFound". Never null.
SSHSESSION_EXPORT const char *SSHErrorCauseName(SSHErrorCause cause) noexcept;
