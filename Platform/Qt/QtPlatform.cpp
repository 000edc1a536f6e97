#include <SSHSession/QtPlatform.h>

#include <SSHSession/Platform.h>

#include "Platform/Qt/QtAlertPresenter.h"
#include "Platform/Qt/QtMainLoop.h"

#include <QApplication>
#include <QThread>

#include <memory>

namespace SSHPlatform {

void installQt() noexcept {
    const auto *const application = qobject_cast<QApplication *>(QCoreApplication::instance());
    if (!application || application->thread() != QThread::currentThread())
        qFatal("SSHPlatform::installQt() needs a QApplication, and its thread.");
    auto questions = std::make_shared<QuestionQueue>();
    auto mainLoop = std::make_shared<QtMainLoop>(questions);
    install(std::move(mainLoop), std::make_shared<QtAlertPresenter>(std::move(questions)));
}

} // namespace SSHPlatform
