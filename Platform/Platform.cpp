#include <SSHSession/Platform.h>

#include <SSHSession/Mutex.h>
#include <SSHSession/PrintableText.h>
#include <SSHSession/RunLoop.h>

#include <syslog.h>

#include <utility>

namespace SSHPlatform {

namespace {

class RefusingPresenter final : public AlertPresenter {
  public:
    AlertAnswer runModal(const Alert &alert) noexcept override {
        log("There is nobody to ask; refused: " + alert.messageText);
        return AlertAnswer::Refused;
    }
};

struct Installed {
    Mutex mutex;
    std::shared_ptr<MainLoop> mainLoop SSHSESSION_GUARDED_BY(mutex);
    std::shared_ptr<AlertPresenter> presenter SSHSESSION_GUARDED_BY(mutex);
};

struct Log {
    Mutex mutex;
    std::function<void(const std::string &)> sink SSHSESSION_GUARDED_BY(mutex);
};

// Never destroyed: a worker thread may still log, or ask for the main loop, while the process ends.
Installed &installed() {
    static auto *const value = new Installed;
    return *value;
}

Log &logState() {
    static auto *const value = new Log;
    return *value;
}

bool somebodyCanBeAsked() {
    const MutexLock lock(installed().mutex);
    return installed().presenter != nullptr;
}

} // namespace

void install(std::shared_ptr<MainLoop> mainLoop,
             std::shared_ptr<AlertPresenter> presenter) noexcept {
    const MutexLock lock(installed().mutex);
    // Swapped, so that what was installed before is released after the lock.
    installed().mainLoop.swap(mainLoop);
    installed().presenter.swap(presenter);
}

std::shared_ptr<MainLoop> mainLoop() noexcept {
    const MutexLock lock(installed().mutex);
    return installed().mainLoop ? installed().mainLoop : RunLoop::main();
}

std::shared_ptr<AlertPresenter> alertPresenter() noexcept {
    const MutexLock lock(installed().mutex);
    if (installed().presenter)
        return installed().presenter;
    return std::make_shared<RefusingPresenter>();
}

bool askOnMainThread(const std::function<void()> &question) noexcept {
    if (somebodyCanBeAsked())
        return mainLoop()->runAndWait(question);
    question();
    return true;
}

void setLogSink(std::function<void(const std::string &)> sink) noexcept {
    const MutexLock lock(logState().mutex);
    logState().sink.swap(sink);
}

void log(const std::string &message) noexcept {
    const std::string harmless = printableText(message, "\t\n");
    const MutexLock lock(logState().mutex);
    if (logState().sink)
        logState().sink(harmless);
    else
        ::syslog(LOG_USER | LOG_NOTICE, "%s", harmless.c_str());
}

} // namespace SSHPlatform
