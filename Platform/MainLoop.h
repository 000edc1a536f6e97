// SPDX-License-Identifier: BSD-3-Clause

// The host application's main thread and event loop, as far as a session needs them.
//
// Modal questions are asked on the main thread, and a connected session's keepalive timer fires
// there. A host with a toolkit installs the toolkit's adapter (see Platform.h); without one the
// built-in RunLoop serves.
#pragma once

#include <SSHSession/SSHSessionExport.h>

#include <chrono>
#include <functional>
#include <memory>

namespace SSHPlatform {

// A scheduled repeating timer. It owns its action, and with it everything the action captured,
// until it is invalidated.
class SSHSESSION_EXPORT RepeatingTimer {
  public:
    RepeatingTimer() = default;
    RepeatingTimer(const RepeatingTimer &) = delete;
    RepeatingTimer &operator=(const RepeatingTimer &) = delete;
    virtual ~RepeatingTimer();

    // Cancels the timer and releases its action before it returns. Any thread, any number of times.
    // An action that is running on the main thread at this moment is not waited for.
    virtual void invalidate() noexcept = 0;
};

class SSHSESSION_EXPORT MainLoop {
  public:
    MainLoop() = default;
    MainLoop(const MainLoop &) = delete;
    MainLoop &operator=(const MainLoop &) = delete;
    virtual ~MainLoop();

    virtual bool isMainThread() const noexcept = 0;

    // Runs `work` on the main thread and waits until it is done; inline when already there. Any
    // thread. Answers false, with `work` not run, when the loop has ended and will not run it.
    virtual bool runAndWait(const std::function<void()> &work) noexcept = 0;

    // Calls `action` on the main thread every `interval`, for the first time one interval from
    // now, whenever the loop is running. Any thread; must not wait for the main thread.
    virtual std::shared_ptr<RepeatingTimer>
    scheduleRepeating(std::chrono::milliseconds interval,
                      std::function<void()> action) noexcept = 0;
};

} // namespace SSHPlatform
