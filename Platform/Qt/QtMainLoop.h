// The application's event loop as the main loop of sessions.
#pragma once

#include <SSHSession/MainLoop.h>

#include "Platform/Qt/QuestionQueue.h"

#include <memory>
#include <thread>

class QObject;

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

    // The first interval begins when the event loop takes note of the timer.
    std::shared_ptr<RepeatingTimer>
    scheduleRepeating(std::chrono::milliseconds interval,
                      std::function<void()> action) noexcept override;

  private:
    const std::thread::id mMainThread = std::this_thread::get_id();
    const std::shared_ptr<QuestionQueue> mQuestions;
    QObject *const mReceiver; // lives in the main thread; takes what other threads post
};

} // namespace SSHPlatform
