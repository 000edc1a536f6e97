#include "Platform/Qt/QtAlertPresenter.h"

#include <SSHSession/Platform.h>

#include "Platform/Qt/AlertDialog.h"
#include "Platform/Qt/QtImage.h"
#include "Platform/Qt/QtNib.h"

#include <QApplication>
#include <QEventLoop>

#include <utility>

namespace SSHPlatform {

QtAlertPresenter::QtAlertPresenter(std::shared_ptr<QuestionQueue> questions)
    : mQuestions(std::move(questions)) {}

AlertAnswer QtAlertPresenter::runModal(const Alert &alert) noexcept {
    if (!waitForTurn(alert)) {
        log("Refused before it could be shown: " + alert.messageText);
        return AlertAnswer::Refused;
    }
    AlertDialog dialog(alert, localizedString("OK"));
    const QPointer<QDialog> before = std::exchange(mOpen, &dialog);
    const AlertAnswer answer = dialog.ask();
    mOpen = before;
    return answer;
}

bool QtAlertPresenter::waitForTurn(const Alert &alert) const {
    while (mOpen && mOpen->isVisible()) {
        QEventLoop loop;
        QObject::connect(mOpen, &QDialog::finished, &loop, &QEventLoop::quit);
        whenWithdrawn(alert, &loop, [&loop] { loop.quit(); });
        loop.exec();
        if (mOpen && mOpen->isVisible())
            return false;
    }
    return !mQuestions->hasEnded();
}

std::unique_ptr<Nib> QtAlertPresenter::loadNib(const std::string &name) noexcept {
    return QtNib::load(QString::fromStdString(name));
}

std::shared_ptr<Image> QtAlertPresenter::loadImage(const std::string &name,
                                                   const std::string &type) noexcept {
    return QtImage::load(QString::fromStdString(name + '.' + type));
}

std::string QtAlertPresenter::localizedString(const std::string &key) noexcept {
    for (const char *const context : {"SSHSession", "QPlatformTheme"}) {
        const QString translation = QCoreApplication::translate(context, key.c_str());
        if (!translation.isEmpty() && translation != QString::fromStdString(key))
            return translation.toStdString();
    }
    return key;
}

void QtAlertPresenter::beep() noexcept {
    QApplication::beep();
}

} // namespace SSHPlatform
