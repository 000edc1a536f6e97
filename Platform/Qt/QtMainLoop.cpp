#include "Platform/Qt/QtMainLoop.h"

#include <QCoreApplication>
#include <QTimer>

#include <mutex>
#include <utility>

namespace SSHPlatform {

namespace {

// What a QTimer calls. Cancelling only takes the action away, so it needs neither the main thread
// nor an event loop that still runs; the QTimer notices at its next tick and goes.
class QtRepeatingTimer final : public RepeatingTimer {
  public:
    explicit QtRepeatingTimer(std::function<void()> action)
        : mAction(std::make_shared<std::function<void()>>(std::move(action))) {}

    void invalidate() noexcept override {
        std::shared_ptr<std::function<void()>> released;
        const std::lock_guard lock(mMutex);
        released.swap(mAction);
    }

    // Answers false when there is nothing left to do, ever.
    bool fire() {
        std::unique_lock lock(mMutex);
        const auto action = mAction;
        lock.unlock();
        if (action)
            (*action)();
        return action != nullptr;
    }

  private:
    std::mutex mMutex;
    std::shared_ptr<std::function<void()>> mAction;
};

void startTicking(QObject *owner, std::chrono::milliseconds interval,
                  const std::shared_ptr<QtRepeatingTimer> &repeating) {
    auto *const timer = new QTimer(owner);
    QObject::connect(timer, &QTimer::timeout, timer, [timer, repeating] {
        if (!repeating->fire())
            timer->deleteLater();
    });
    timer->start(interval);
}

} // namespace

QtMainLoop::QtMainLoop(std::shared_ptr<QuestionQueue> questions)
    : mQuestions(std::move(questions)), mReceiver(new QObject) {
    const auto end = [queue = mQuestions] { queue->end(); };
    const auto *const application = QCoreApplication::instance();
    QObject::connect(application, &QCoreApplication::aboutToQuit, mReceiver, end);
    QObject::connect(application, &QObject::destroyed, mReceiver, end);
}

// The last to let go may be any thread that has just asked something.
QtMainLoop::~QtMainLoop() {
    if (isMainThread())
        delete mReceiver;
    else
        mReceiver->deleteLater();
}

bool QtMainLoop::isMainThread() const noexcept {
    return std::this_thread::get_id() == mMainThread;
}

bool QtMainLoop::runAndWait(const std::function<void()> &work) noexcept {
    const auto wake = [this] {
        QMetaObject::invokeMethod(
            mReceiver, [queue = mQuestions] { queue->serve(); }, Qt::QueuedConnection);
    };
    if (!isMainThread())
        return mQuestions->ask(work, wake);
    mQuestions->askHere(work, wake);
    return true;
}

std::shared_ptr<RepeatingTimer>
QtMainLoop::scheduleRepeating(std::chrono::milliseconds interval,
                              std::function<void()> action) noexcept {
    auto repeating = std::make_shared<QtRepeatingTimer>(std::move(action));
    QMetaObject::invokeMethod(mReceiver, [owner = mReceiver, interval, repeating] {
        startTicking(owner, interval, repeating);
    });
    return repeating;
}

} // namespace SSHPlatform
