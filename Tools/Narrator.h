// Tells, stage by stage, what was found out about the server and how the user was let in.
#pragma once

#include <SSHSession/SSHSession.h>

class Narrator final : public SSHSessionObserver {
  public:
    void didEndStage(SSHSession &session, SSHSessionStage stage, bool succeeded) noexcept override;
    void didTryMethod(SSHSession &session, const SSHAttempt &attempt) noexcept override;
};
