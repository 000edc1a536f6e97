// SPDX-License-Identifier: BSD-3-Clause

// What a process installs once, at start-up, before it makes its first session.
//
// Without an installed main loop the built-in RunLoop serves. Without an installed presenter there
// is nobody to ask: every alert answers as if the user had refused it, and the log says so.
#pragma once

#include <SSHSession/Alert.h>
#include <SSHSession/MainLoop.h>

#include <functional>
#include <memory>
#include <string>

namespace SSHPlatform {

// Either argument may be null, which means the default above. Any thread.
SSHSESSION_EXPORT void install(std::shared_ptr<MainLoop> mainLoop,
                               std::shared_ptr<AlertPresenter> presenter) noexcept;

// The installed main loop, or the built-in one. Never null.
SSHSESSION_EXPORT std::shared_ptr<MainLoop> mainLoop() noexcept;

// The installed presenter, or the one that refuses everything. Never null.
SSHSESSION_EXPORT std::shared_ptr<AlertPresenter> alertPresenter() noexcept;

// Runs a closure that shows alerts on the main thread and waits for it; inline when already there,
// and also when nobody can be asked, since a refusal needs no thread. Answers false, with
// `question` not run, when the main loop has ended.
SSHSESSION_EXPORT bool askOnMainThread(const std::function<void()> &question) noexcept;

// Where diagnostics go that are not returned to a caller; null means syslog(3), the default. The
// sink is called on whatever thread has something to say, one call at a time, and must not log
// itself.
SSHSESSION_EXPORT void setLogSink(std::function<void(const std::string &message)> sink) noexcept;

// Writes one diagnostic line, as `printableText` makes it. Any thread.
SSHSESSION_EXPORT void log(const std::string &message) noexcept;

} // namespace SSHPlatform
