// Alerts, user interface files and images by Qt Widgets. Main thread only.
//
// An open alert serves the event loop, from which the host may ask the next one, in a timer's slot
// for instance: that one waits until the first is answered, instead of covering it.
#pragma once

#include <SSHSession/Alert.h>

#include "Platform/Qt/QuestionQueue.h"

#include <QPointer>

#include <memory>

class QDialog;

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
    // Answers false when the application quits first, or the alert is withdrawn.
    bool waitForTurn(const Alert &alert) const;

    const std::shared_ptr<QuestionQueue> mQuestions;
    QPointer<QDialog> mOpen;
};

} // namespace SSHPlatform
