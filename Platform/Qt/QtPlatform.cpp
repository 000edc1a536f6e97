#include <SSHSession/QtPlatform.h>

#include <SSHSession/Platform.h>

#include "Platform/Qt/QtAlertPresenter.h"
#include "Platform/Qt/QtMainLoop.h"

#include <QApplication>
#include <QThread>

#include <memory>

// The linker takes from a static library only what is named.
static void initResources() {
    Q_INIT_RESOURCE(SSHSessionPrompts);
}

namespace SSHPlatform {

void installQt() noexcept {
    const auto *const application = qobject_cast<QApplication *>(QCoreApplication::instance());
    if (!application || application->thread() != QThread::currentThread())
        qFatal("SSHPlatform::installQt() needs a QApplication, and its thread.");
    initResources();
    auto questions = std::make_shared<QuestionQueue>();
    auto mainLoop = std::make_shared<QtMainLoop>(questions);
    install(std::move(mainLoop), std::make_shared<QtAlertPresenter>(std::move(questions)));
}

} // namespace SSHPlatform
