// A thread that makes one blocking call after another, so that the window never waits.
#pragma once

#include <QObject>
#include <QThread>

#include <functional>

class Lane {
  public:
    Lane() {
        mTarget.moveToThread(&mThread);
        mThread.start();
    }
    Lane(const Lane &) = delete;
    Lane &operator=(const Lane &) = delete;

    // Waits for the call that is under way.
    ~Lane() {
        mThread.quit();
        mThread.wait();
    }

    void post(const std::function<void()> &call) { QMetaObject::invokeMethod(&mTarget, call); }

  private:
    QThread mThread;
    QObject mTarget;
};
