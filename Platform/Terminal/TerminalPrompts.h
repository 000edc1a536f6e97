// SPDX-License-Identifier: BSD-3-Clause

// Prompts for programs that run in a terminal.
#pragma once

#include <SSHSession/Alert.h>
#include <SSHSession/PrintableText.h>
#include <SSHSession/Secret.h>

#include <memory>
#include <string>

namespace SSHPlatform {

// Shows alerts on the controlling terminal (never on standard output) and reads the answers there:
// secrets without echo, a choice of buttons by number. Return alone chooses the button that has it
// as its key; what was typed before the question does not count. Without a terminal, at end-of-file
// (Ctrl-D, or a terminal that was hung up), and after three answers that name no button, the alert
// is refused. Install it with SSHPlatform::install.
SSHSESSION_EXPORT std::shared_ptr<AlertPresenter> terminalAlertPresenter() noexcept;

// Asks for one line without echo, for a program's own questions. None without a terminal, at
// end-of-file even in the middle of a line, or when the line is longer than every terminal's driver
// of this system holds: 4094 bytes on Linux, 1000 elsewhere. An empty line is an answer.
SSHSESSION_EXPORT Secret readSecretFromTerminal(const std::string &prompt) noexcept;

} // namespace SSHPlatform
