// SPDX-License-Identifier: BSD-3-Clause

// What a session is waiting for, in words for the user. Pure.
#pragma once

#include <SSHSession/SSHFacts.h>
#include <SSHSession/SSHSessionExport.h>

#include <chrono>
#include <string>

// To follow "Still waiting: ", such as "for the server's first words". Printable. Empty where
// nothing is under way, or where it is the user who is waited for.
SSHSESSION_EXPORT std::string SSHWaitingText(const SSHFacts &facts) noexcept;

// Since when nothing has happened: neither a new stage, nor a byte of a command's, nor an answer of
// the user's.
SSHSESSION_EXPORT std::chrono::steady_clock::time_point
SSHWaitingSince(const SSHFacts &facts) noexcept;
