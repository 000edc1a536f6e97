// Alerts, user interface files and images by Qt Widgets. Main thread only.
#pragma once

#include <SSHSession/Alert.h>

#include "Platform/Qt/QuestionQueue.h"

#include <memory>

namespace SSHPlatform {

class QtAlertPresenter final : public AlertPresenter {
  public:
    // Refuses every alert once `questions` has ended.
    explicit QtAlertPresenter(std::shared_ptr<QuestionQueue> questions);

    AlertAnswer runModal(const Alert &alert) noexcept override;
    std::unique_ptr<Nib> loadNib(const std::string &name) noexcept override;
    std::shared_ptr<Image> loadImage(const std::string &name,
                                     const std::string &type) noexcept override;
    std::string localizedString(const std::string &key) noexcept override;
    void beep() noexcept override;

  private:
    const std::shared_ptr<QuestionQueue> mQuestions;
};

} // namespace SSHPlatform
