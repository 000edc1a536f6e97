// The errors of a session's stages, and what stages ask of the session's parameters.
#pragma once

#include <SSHSession/SSHError.h>

#include <cstdint>
#include <optional>
#include <string>

class SSHSession;

namespace SSHEngine {

// For a stage of `start`.
SSHErrorRef connectionError(const SSHSession &session, const std::optional<std::string> &reason,
                            std::int32_t code);

// For a connection that was lost later.
SSHErrorRef lostConnectionError(const SSHSession &session, const std::optional<std::string> &reason,
                                std::int32_t code);

// For a stage whose connection has been torn down.
SSHErrorRef stoppedError(const SSHSession &session);

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
