// A command's outputs on their way from the thread that runs it to the main thread.
#pragma once

#include <SSHSession/Mutex.h>
#include <SSHSession/SSHCommandFlow.h>

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

class OutputQueue {
  public:
    // In the order of SSHCommandStream.
    using Pieces = std::array<std::string, 2>;

    // `notify` is called on the command's thread whenever there is something to collect again.
    explicit OutputQueue(std::function<void()> notify) : mNotify(std::move(notify)) {}

    // For SSHCommand::setOutputSink. Holds so much at most that a command that writes faster than
    // its output can be shown is held up at the server.
    std::optional<std::size_t> take(SSHCommandStream stream, std::string_view piece) noexcept;

    // All that has come since the last time. Waits for nothing.
    Pieces collect();

  private:
    const std::function<void()> mNotify;
    SSHPlatform::Mutex mMutex;
    SSHPlatform::ConditionVariable mHasRoom;
    Pieces mWaiting SSHSESSION_GUARDED_BY(mMutex);
};
