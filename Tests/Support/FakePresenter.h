// A user who answers alerts by a script, and remembers all that was shown.
#pragma once

#include <SSHSession/Platform.h>

#include <deque>
#include <functional>
#include <string>
#include <thread>
#include <vector>

class FakePresenter final : public SSHPlatform::AlertPresenter {
  public:
    struct Shown {
        SSHPlatform::AlertStyle style;
        std::string messageText;
        std::string informativeText;
        std::vector<std::string> buttons; // "title" or "title=key", Return written as "\r"
        std::string view;                 // the accessory view's name, or empty
        std::thread::id thread;
    };

    SSHPlatform::AlertAnswer runModal(const SSHPlatform::Alert &alert) noexcept override;
    std::unique_ptr<SSHPlatform::Nib> loadNib(const std::string &name) noexcept override;
    void beep() noexcept override { ++beeps; }

    std::vector<Shown> shown;
    std::deque<SSHPlatform::AlertAnswer>
        answers;       // taken from the front; refused when there is none
    std::string typed; // into every field while an alert is shown
    std::function<void()> whileShown;
    bool hasNib = true;
    int beeps = 0;
    std::vector<bool> checkBoxStates;
};
