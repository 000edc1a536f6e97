// The application's event loop as the main loop of sessions.
#pragma once

#include <SSHSession/MainLoop.h>

#include "Platform/Qt/QuestionQueue.h"
#include "Platform/TimerList.h"

#include <atomic>
#include <memory>
#include <thread>

class QObject;
class QTimer;

namespace SSHPlatform {

class QtMainLoop final : public MainLoop {
  public:
    // Main thread, with a QApplication. `questions` ends when the application quits.
    explicit QtMainLoop(std::shared_ptr<QuestionQueue> questions);
    QtMainLoop(const QtMainLoop &) = delete;
    QtMainLoop &operator=(const QtMainLoop &) = delete;
    ~QtMainLoop() override;

    bool isMainThread() const noexcept override;
    bool runAndWait(const std::function<void()> &work) noexcept override;

    std::shared_ptr<RepeatingTimer>
    scheduleRepeating(std::chrono::milliseconds interval,
                      std::function<void()> action) noexcept override;

  private:
    const std::thread::id mMainThread = std::this_thread::get_id();
    const std::shared_ptr<QuestionQueue> mQuestions;
    QObject *const mReceiver; // lives in the main thread; takes what other threads post
    const std::shared_ptr<TimerList> mTimers = std::make_shared<TimerList>();
    const std::shared_ptr<std::atomic<bool>> mIsWaking = std::make_shared<std::atomic<bool>>(false);
    QTimer *const mClock; // the receiver's, and as that in the main thread
};

} // namespace SSHPlatform
