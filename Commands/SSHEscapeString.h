// SPDX-License-Identifier: BSD-3-Clause

#pragma once

#include <SSHSession/SSHSessionExport.h>

#include <string>

// Quotes `string` as one word for a POSIX shell, which reads the result back as exactly the input.
// For file names and other arguments that a host splices into a command line.
//
// For a command with an administrator's password this is not enough; see SSHCommand::adminPassword.
//
// The input is taken up to its first zero byte. The empty string quotes to the empty string, so an
// empty argument vanishes from the command line; quote it as '' by hand where it must not. Valid
// UTF-8 stays valid UTF-8. Any thread.
SSHSESSION_EXPORT std::string SSHEscapeString(const std::string &string) noexcept;
