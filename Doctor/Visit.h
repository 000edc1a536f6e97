// One connection of an examination to the server, made with the engine's own stages.
#pragma once

#include "Doctor/Examination.h"
#include "Session/Connection.h"
#include "Session/SSHSession_libssh2.h"

#include <SSHSession/SSHSessionStage.h>

#include <memory>
#include <optional>

namespace SSHEngine {

// A session that asks nobody, writes nothing and sends the password once.
class Inspector final : public SSHSession_libssh2 {
  public:
    explicit Inspector(const Patient &patient);
    using SSHSession_libssh2::beginConnection;
};

// Begins the TCP connection; answers a socket that does not block, or none with errno.
OwnSocket beginToConnect(const Address &address);
// Answers errno, 0 for a connected socket; ETIMEDOUT after the time.
int finishConnecting(const OwnSocket &socket, const TimeBudget &budget,
                     std::chrono::milliseconds most);

constexpr std::chrono::seconds usualVisit(8);

class Visit {
  public:
    // All that is done with it takes `most` at most; then the connection is shut down.
    Visit(const Examination &examination, std::chrono::milliseconds most);
    ~Visit();
    Visit(const Visit &) = delete;
    Visit &operator=(const Visit &) = delete;

    // TCP and the handshake.
    bool shakeHands();
    // The stage of `start`; what it sees stands in `facts`.
    bool run(SSHSessionStage stage,
             bool (SSHSession_libssh2::*operation)(Connection &, SSHErrorRef *));
    // On the session queue; false also where the connection has ended.
    bool call(const std::function<bool(LIBSSH2_SESSION *)> &work) {
        return engine->onSessionQueue(*connection, nullptr, work);
    }

    // With what is known from before, and the error of the last stage that failed.
    SSHFacts facts() const;
    bool isTooLate() const { return isTimeLimit(connection->ending()); }

    const std::shared_ptr<Inspector> engine;
    const ConnectionRef connection;

  private:
    bool connect(SSHErrorRef *error);

    const Examination &mExamination;
    std::optional<TimeBudget::Limit> mLimit;
};

} // namespace SSHEngine
