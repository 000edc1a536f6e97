// What the program's own exit status says about the remote command.
#pragma once

#include <SSHSession/SSHCommand.h>

#include <optional>
#include <string>
#include <string_view>

inline constexpr int failedStatus = 255;

// The name of the signal that ended a finished command; none when it ended by itself.
std::optional<std::string> exitSignalOf(const SSHCommand &command);

// This system's number of the signal `name`, as in "TERM" or "TERM@example.com".
std::optional<int> signalNumber(std::string_view name);

// The command's own status, or 128 + the number of the signal that ended it. What has no place in
// an exit status counts as failed, and the user is told.
int exitStatusOf(const SSHCommand &command);
