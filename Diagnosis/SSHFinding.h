// SPDX-License-Identifier: BSD-3-Clause

// Why a session failed, and what to do: sentences for the user, from facts. Pure: nothing here asks
// a server or opens a file. A finding is certain of what it says; where things look alike from
// here, it names all of them and says where to look.
#pragma once

#include <SSHSession/SSHFacts.h>
#include <SSHSession/SSHSessionExport.h>

#include <string>
#include <vector>

// What is wrong, to branch on: Docs/troubleshooting.md has the sentences.
enum class SSHFindingID {
    // --- Connecting
    HostIsNoName, // "ssh://db", "ada@db": what is no host's name
    HostNameUnknown,
    NameServerSilent,
    HostHasNoIPv4,        // and the session tries no other
    HostHasNoSuchAddress, // none of the family that the session was told to use
    ConnectionRefused,
    ConnectionDropped,   // nobody answered in time
    HostUnreachable,     // no route, or a router or firewall said no
    ConnectionForbidden, // by this computer itself
    NoSocket,

    // --- The handshake
    SpeaksHTTP,
    SpeaksTLS,
    SpeaksOtherProtocol,
    SpeaksSSH1,
    ServerHungUpAtOnce,
    ServerTooBusy, // MaxStartups in sshd_config(5), by its words
    ServerPenalty, // PerSourcePenalties, by its words
    ServerSilent,  // connected, and not a word
    NoCommonKeyExchange,
    NoCommonHostKey,
    NoCommonCipher,
    NoCommonMAC,
    HandshakeCutOff, // the connection ended in the middle of it
    HandshakeSlow,   // the time limit passed in the middle of it
    HandshakeFailed,

    // --- The host key
    HostKeyUnknown,
    HostKeyUnasked, // nobody was there to ask
    HostKeyChanged,
    HostKeyOtherType, // the key on record is of another type, so that it says nothing of this one
    HostKeyOtherPort, // the same key is on record under another port
    HostKeyRevoked,
    KnownHostsUnreadable,
    KnownHostsBadLine,   // and its number
    KnownHostsUnwritten, // an accepted key could not be recorded
    SSHDirectoryMissing,

    // --- Logging in
    MethodsUntold,
    KeepAliveRefused, // the server, of a kind that does, hung up at a keepalive before the log-in
    NoUsableMethod,
    PasswordRefused,
    PasswordMissing,
    PasswordEmpty,
    PasswordExpired,
    PasswordNotOffered, // one was given, and the server takes none
    AnswersRefused,
    AnswersMissing,    // to questions that nobody was there to answer, or wanted to
    QuestionsNotAsked, // more than the session answers by itself
    KeyRefused,
    KeyMissing,
    KeyUnreadable,
    KeyExposed,
    KeyIsPublic,
    KeyIsPuTTY,
    KeyIsNoKey,
    KeyOnToken,
    KeyCipherUnknown,
    KeyEncrypted, // and nobody gave the pass phrase
    PassphraseWrong,
    PublicFileMissing,
    PublicFileForeign,
    SignatureRefused,
    KeyNotTried, // there, usable, and not among those that the session tries
    AgentDead,
    AgentEmpty,
    AgentDidNotSign,
    TooManyKeys,    // the server hung up before the right one's turn
    KeysNotOffered, // the server takes no keys
    MoreFactorsWanted,
    LogInHungUp,
    LogInSlow,

    // --- Commands
    SessionRefused,
    CommandRefused,
    CommandTooLong,
    InputUnreadable,
    CommandNotFound,
    CommandNotExecutable,
    CommandKilled,     // by a signal
    ShellNotAvailable, // nologin(8) and its like, by its words
    CommandSlow,
    CommandSilent,
    CommandMayWaitForInput,
    SudoPasswordWrong,
    SudoNotAllowed,
    SudoMissing,
    SudoNeedsTerminal,
    SudoHiddenByShell, // the shell prints as it starts, which hides sudo's answer
    SudoSilent,
    SudoRefused,

    // --- At any time
    ServerDisconnected, // with its words
    ConnectionLost,
    ConnectionReset,
    ServerUnresponsive,
    ServerMisbehaved,
    NotConnected,
    AlreadyStarting,
    Cancelled,
    Stopped,
    Unexplained,
};

struct SSHFinding {
    SSHFindingID id = SSHFindingID::Unexplained;
    std::string text; // what is wrong, in a sentence or two; printable
    std::string step; // what to do about it; printable
};

// The most likely first. Empty where nothing has failed and nothing is odd.
SSHSESSION_EXPORT std::vector<SSHFinding> SSHFindings(const SSHFacts &facts) noexcept;

// The name for reports, such as "hostNameUnknown". Never null.
SSHSESSION_EXPORT const char *SSHFindingName(SSHFindingID id) noexcept;
