#include "Platform/Qt/QtMainLoop.h"

#include <QCoreApplication>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <utility>

namespace SSHPlatform {

namespace {

void awaitNext(QTimer &clock, const TimerList &timers) {
    const auto due = timers.nextDue();
    if (due == TimerList::Clock::time_point::max())
        return clock.stop();
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(due - TimerList::Clock::now());
    clock.start(std::max(wait, std::chrono::milliseconds(0)));
}

// In the main thread, and gone with `owner`.
QTimer *makeClock(QObject *owner, const std::shared_ptr<TimerList> &timers) {
    auto *const clock = new QTimer(owner);
    clock->setSingleShot(true);
    clock->setTimerType(Qt::PreciseTimer);
    QObject::connect(clock, &QTimer::timeout, clock, [clock, timers] {
        const auto action = timers->takeDue();
        awaitNext(*clock, *timers); // before the action, which may run an event loop of its own
        if (action)
            (*action)();
    });
    return clock;
}

} // namespace

QtMainLoop::QtMainLoop(std::shared_ptr<QuestionQueue> questions)
    : mQuestions(std::move(questions)), mReceiver(new QObject),
      mClock(makeClock(mReceiver, mTimers)) {
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
    auto timer = mTimers->add(interval, std::move(action));
    // One is enough for all timers that come before the event loop runs.
    if (!mIsWaking->exchange(true))
        QMetaObject::invokeMethod(mReceiver,
                                  [clock = mClock, timers = mTimers, isWaking = mIsWaking] {
                                      *isWaking = false;
                                      awaitNext(*clock, *timers);
                                  });
    return timer;
}

} // namespace SSHPlatform
