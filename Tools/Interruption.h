// The user's wish to end the program: Ctrl-C, kill(1), or a terminal that goes away.
#pragma once

#include <SSHSession/SSHSession.h>

#include <array>
#include <memory>
#include <thread>

// From its making on, the first such signal cancels what the session is doing; a second one ends
// the process at once. Signals that were ignored still are. To be added to the session's observers.
// One in a process.
class Interruption final : public SSHSessionObserver {
  public:
    explicit Interruption(const std::shared_ptr<SSHSession> &session);
    ~Interruption() override;
    Interruption(const Interruption &) = delete;
    Interruption &operator=(const Interruption &) = delete;

    // What is only about to begin is cancelled as well, and so is what a prompt made of the signal.
    void willBeginStage(SSHSession &session, SSHSessionStage stage) noexcept override;
    void didEndStage(SSHSession &session, SSHSessionStage stage, bool succeeded) noexcept override;

    // Ends the process as the signal would have, if one came, so that its caller sees that.
    static void takeEffect();

  private:
    std::array<int, 2> mPipe{-1, -1};
    std::thread mThread;
};
