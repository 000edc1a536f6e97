// Words of servers, shells and sudo by which a failure can be told. Those of OpenSSH, sudo and the
// usual shells in English, which is what they speak to a session that sets no language.
#pragma once

#include <array>
#include <span>
#include <string_view>

namespace SSHEngine::Words {

using List = std::span<const std::string_view>;

// --- sshd
inline constexpr std::string_view tooBusy = "Exceeded MaxStartups";
inline constexpr std::string_view penalty = "Not allowed at this time";
inline constexpr std::string_view tooManyFailures = "Too many authentication failures";

// --- Other servers, in what they send in place of a version
inline constexpr std::string_view http = "HTTP/";
inline constexpr std::string_view tlsAlert = "\x15\x03";
inline constexpr std::string_view ssh1 = "SSH-1.";
inline constexpr std::string_view ssh1And2 = "SSH-1.99"; // RFC 4253, section 5.1

// --- Servers that take a keepalive before the log-in for an offence, by their version
inline constexpr auto refusingKeepAlives =
    std::to_array<std::string_view>({"dropbear", "libssh", "AsyncSSH", "SSH-2.0-Go"});

// --- Shells
inline constexpr auto notFound =
    std::to_array<std::string_view>({"not found", "No such file or directory", "Unknown command"});
inline constexpr auto cannotRun = std::to_array<std::string_view>(
    {"Permission denied", "cannot execute", "Exec format error", "s a directory"});
inline constexpr auto notAvailable = std::to_array<std::string_view>(
    {"This account is currently not available", "This account is not available"});
inline constexpr auto filesOnly =
    std::to_array<std::string_view>({"This service allows sftp connections only"});
inline constexpr std::string_view tooLong = ": Argument list too long";
inline constexpr std::string_view expired = "Password change required but no TTY available";

// --- sudo
inline constexpr auto sudoMissing = std::to_array<std::string_view>(
    {"sudo: command not found", "sudo: not found", "sudo: No such file or directory",
     "command not found: sudo", "Unknown command: /usr/bin/sudo", "Unknown command: sudo"});
inline constexpr auto wrongPassword =
    std::to_array<std::string_view>({"incorrect password attempt", "Sorry, try again",
                                     "The password was not accepted", "no password was provided"});
inline constexpr auto notSudoer =
    std::to_array<std::string_view>({"is not in the sudoers file", "is not allowed to",
                                     "may not run sudo", "not allowed to run sudo"});
inline constexpr auto wantsTerminal = std::to_array<std::string_view>(
    {"a terminal is required", "you must have a tty", "no tty present"});

} // namespace SSHEngine::Words
