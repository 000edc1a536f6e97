// SPDX-License-Identifier: BSD-3-Clause

// What a session does otherwise than by default.
//
// Every field's default is what a session made without options does, which never changes: a host
// that has tuned its texts, its tests or its servers to that keeps it. `recommended` is today's
// practice, which new hosts should choose, field by field where they know better:
//
//   SSHSessionOptions options = SSHSessionOptions::recommended();
//   options.asksForPassword = false; // this host has its own dialogue for that
//   auto session = SSHSession::sessionWithHost("db.example.com", 22, "ada", {}, {}, options);
//
// A value: the session keeps its own copy. No field adds or changes a text of the errors that the
// default set gives as long as it has its default.
#pragma once

#include <SSHSession/SSHSessionExport.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

// Of the addresses that a host may have.
enum class SSHAddressFamily { Any, IPv4, IPv6 };

struct SSHSessionOptions {
    // Every field at what serves today's servers, keys and networks best.
    static SSHSESSION_EXPORT SSHSessionOptions recommended() noexcept;

    // --- Connecting

    // Tries all addresses of the host, IPv6 and IPv4 in turn, a new one 250 ms after the one
    // before, and takes the first that answers (RFC 8305). A connection that fails is told with the
    // system's own reason ("Connection refused") and its errno as the code. By default the first
    // IPv4 address alone is tried, and a refusal is reported by the handshake.
    bool triesEveryAddress = false;

    // Leaves out the addresses of other families. Of no effect without `triesEveryAddress`.
    SSHAddressFamily addressFamily = SSHAddressFamily::Any;

    // Begins keepalives only after log-in, for servers that take one before for an offence
    // (RFC 4252, section 6), and asks for answers to them (RFC 4254, section 4): every 30 s, while
    // the session is idle and during a command that is silent. A server that has left three
    // unanswered counts as gone. What the server asks of an idle session is answered within
    // seconds, and a connection that ends while the session is idle is noticed: the delegate is
    // told, and `isConnected` becomes false. By default nobody listens to an idle session.
    bool watchesConnection = false;

    // --- The server's identity

    // Records host keys of every type that the library can check, those of a port other than 22 as
    // "[host]:port", which is how ssh(1) looks for them, and asks the server for a key of a type
    // that is recorded. Obeys "@revoked" marks (sshd(8), "SSH_KNOWN_HOSTS FILE FORMAT"), shows a
    // key's type and its SHA-256 fingerprint in the question, keeps lines that it does not
    // understand as they are and makes a missing ~/.ssh. An accepted key takes the place of the
    // host's others. Keys in /etc/ssh/ssh_known_hosts count too. By default only RSA, DSA and ECDSA
    // 256 keys are recorded, under the plain host name.
    bool knowsEveryHostKeyType = false;

    // --- Who the user is

    // Tries the given key first, before the agent, then the agent's identities, then id_ed25519,
    // id_ecdsa and id_rsa, none of them twice. Asks for the pass phrase of every encrypted file, up
    // to three times, and of no other; refuses a private key that others may read; uses a
    // certificate beside a key. By default the agent comes first, then the given key, id_dsa and
    // id_rsa, and a pass phrase is asked for where signing fails.
    bool triesKeysOfToday = false;

    // Private keys to try after the given one and like it, in this order. A tilde at the beginning
    // of a path is the home directory. Of no effect without `triesKeysOfToday`.
    std::vector<std::string> furtherKeyFiles = {};

    // How many of the agent's identities are tried at most; 0 is all of them. A server hangs up
    // after a number of attempts, six by default in sshd_config(5).
    std::size_t maximumAgentKeys = 0;

    // Goes on after a method that the server has accepted as one factor of several, as long as it
    // names methods that have not been tried. By default the first method that does not let the
    // user in has failed.
    bool triesFurtherFactors = false;

    // Puts keyboard-interactive questions (RFC 4256) that are not for the password to the user. By
    // default a single question is answered with the password, whatever it asks, and several with
    // nothing.
    bool asksServersQuestions = false;

    // Asks the user for the password when the server offers that method and none was given. By
    // default the method fails.
    bool asksForPassword = false;

    // Hands texts that the server shows at log-in (RFC 4252, section 5.4) to the observers; see
    // SSHSessionObserver::didReceiveBanner. libssh2 before 1.11 knows of none, and 1.11
    // as others build it only of the last before a list of methods.
    bool tellsBanners = false;

    // --- Commands

    // Tells a command of the end of its input once. By default it may be told again and again,
    // which some servers take for an offence.
    bool endsInputOnce = false;

    // Passes a command to the administrator's shell as it was given, whatever characters it holds,
    // finds sudo's answer behind what a shell prints as it starts, and fails with sudo's own words
    // as soon as sudo has ended. By default the user's login shell expands dollar signs,
    // back-quotes and backslashes, and only an English refusal after three attempts is understood.
    bool followsSudo = false;

    // --- Time limits. 0 is none. Each fails with an error of its own (code ETIMEDOUT), save the
    // first, which is as it always was.

    // For the connection, all addresses together, after the name look-up.
    std::chrono::milliseconds connectTimeout = std::chrono::seconds(5);
    // For the SSH version and the key exchange.
    std::chrono::milliseconds handshakeTimeout{0};
    // For authentication, without the time in which the user is asked.
    std::chrono::milliseconds logInTimeout{0};
    // For one command, from its turn to its end. It may go on at the server.
    std::chrono::milliseconds commandTimeout{0};
    // For a command that sends and takes nothing, while no sink or source of the host's holds it
    // up. An input's descriptor that gives nothing does not count as that.
    std::chrono::milliseconds silenceTimeout{0};
};
