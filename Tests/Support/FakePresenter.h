// A user who answers alerts by a script, and remembers all that was shown.
#pragma once

#include <SSHSession/Platform.h>

#include <deque>
#include <functional>
#include <thread>

class FakePresenter final : public SSHPlatform::AlertPresenter {
  public:
    SSHPlatform::AlertAnswer runModal(const SSHPlatform::Alert &alert) noexcept override;
    std::unique_ptr<SSHPlatform::Nib> loadNib(const std::string &name) noexcept override;
    void beep() noexcept override { ++beeps; }

    // "Critical: " for that style, then "message | details", then " | title" or " | title=key" for
    // each button, then " | [view]" with what has been done to the view's parts.
    std::vector<std::string> shown;
    std::thread::id thread; // that the last alert was shown on
    int withdrawal = -1;    // of the last alert
    // Taken from the front; refused when there is none.
    std::deque<SSHPlatform::AlertAnswer> answers;
    std::string typed; // into every field while an alert is shown
    std::function<void()> whileShown;
    bool hasNib = true;
    int beeps = 0;
};
