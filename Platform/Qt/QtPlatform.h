// SPDX-License-Identifier: BSD-3-Clause

// Prompts and timers for host applications that are built with Qt Widgets.
#pragma once

#include <SSHSession/SSHSessionExport.h>

namespace SSHPlatform {

// Installs Qt's event loop and alerts for every session of the process. Call it on the main thread,
// right after the QApplication has been made and before its `aboutToQuit` is connected to anything
// that waits for a thread.
//
// Alerts are shown one at a time, application-modal, in the application's palette. From
// `aboutToQuit` on, or when the QApplication is destroyed, every prompt counts as refused: one that
// is open closes, and a thread that waits for its turn goes on at once. An application that runs
// its event loop a second time calls this again before.
//
// The titles "OK" and "Cancel" are looked up in the application's installed translators, in the
// context "SSHSession" and then in Qt's own ("QPlatformTheme"); all other texts are English.
//
// Without a QApplication, or on another thread, the process ends with a message.
SSHSESSION_EXPORT void installQt() noexcept;

} // namespace SSHPlatform
