// Which methods the server offers (RFC 4252, section 5.1).
#pragma once

#include <libssh2.h>

#include <optional>
#include <string>

namespace SSHEngine {

// The server's comma-separated list; none, with the library's code, when there is no answer.
struct MethodList {
    std::optional<std::string> names;
    int error = 0;
};

// Asks with a request of its own, which OpenSSH takes for a failed attempt unless it is the first.
// Session queue only.
MethodList fetchMethodList(LIBSSH2_SESSION *session, const char *user);

} // namespace SSHEngine
