// SPDX-License-Identifier: BSD-3-Clause

// The built-in main loop, for hosts without a toolkit.
//
// The process has one, which lives as long as the process does. It serves while the host is inside
// `run` or `runFor`, which only the main thread may call; work and timers that fall due meanwhile
// wait for the next such call.
#pragma once

#include <SSHSession/MainLoop.h>

namespace SSHPlatform {

class SSHSESSION_EXPORT RunLoop final : public MainLoop {
  public:
    static const std::shared_ptr<RunLoop> &main() noexcept;

    ~RunLoop() override;

    // Serves until `stop` is called.
    void run() noexcept;

    // Serves for the given time, or until `stop` is called.
    void runFor(std::chrono::milliseconds duration) noexcept;

    // Makes the running `run` or `runFor` return, or the next one if none is running. Any thread.
    void stop() noexcept;

    bool isMainThread() const noexcept override;
    bool runAndWait(const std::function<void()> &work) noexcept override;
    std::shared_ptr<RepeatingTimer>
    scheduleRepeating(std::chrono::milliseconds interval,
                      std::function<void()> action) noexcept override;

  private:
    RunLoop();

    struct State;
    std::shared_ptr<State> mState;
};

} // namespace SSHPlatform
