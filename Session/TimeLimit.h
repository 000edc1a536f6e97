// Ends a connection whose server takes longer than the host allows it.
#pragma once

#include "Session/Connection.h"

#include <SSHSession/SSHSessionOptions.h>

#include <chrono>
#include <memory>

namespace SSHEngine {

// What an option stands for: 0 is no limit.
std::chrono::milliseconds timeLimit(std::chrono::milliseconds option);

// The limit that ends a connection in this way; `forever` where there is none.
std::chrono::milliseconds limitOf(Ending why, const SSHSessionOptions &options);

// While an object of this kind lives, the connection is watched from a thread of its own, and shut
// down for the given reason when the limit passes. A log-in does not count the time in which the
// user is asked, and a silence begins anew with each progress. Without a limit there is
// no thread, and where the system has no thread to give, no limit: the log says so.
class TimeLimit {
  public:
    TimeLimit(Connection &connection, Ending why);
    // Afterwards the connection is not touched any more.
    ~TimeLimit();
    TimeLimit(const TimeLimit &) = delete;
    TimeLimit &operator=(const TimeLimit &) = delete;

  private:
    struct Watch;
    std::shared_ptr<Watch> mWatch;
};

} // namespace SSHEngine
