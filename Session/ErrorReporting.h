// The errors of a session's stages, and what stages ask of the session's parameters.
#pragma once

#include <SSHSession/SSHError.h>

#include <cstdint>
#include <optional>
#include <string>

class SSHSession;

namespace SSHEngine {

class Connection;

// For a stage of `start`.
SSHErrorRef connectionError(const SSHSession &session, const std::optional<std::string> &reason,
                            std::int32_t code, SSHErrorCause cause);

// For a connection that was lost later.
SSHErrorRef lostConnectionError(const SSHSession &session, const std::optional<std::string> &reason,
                                std::int32_t code, SSHErrorCause cause);

// For a command.
SSHErrorRef commandError(const std::string &reason, std::int32_t code, SSHErrorCause cause);
SSHErrorRef notConnectedError();

// For a `start` or a command whose connection has been shut down, or replaced, under it.
SSHErrorRef endedStartError(const Connection &connection);
SSHErrorRef endedCommandError(const Connection &connection);

// Stores the error that `make` answers where the caller wants one. Answers false, for the caller to
// hand on.
template <typename Make>
bool fail(SSHErrorRef *error, Make make) {
    if (error)
        *error = make();
    return false;
}

// The user name for the library. A null one is a programming error, reported for `function`.
const char *requiredUser(const SSHSession &session, const char *function);

} // namespace SSHEngine
