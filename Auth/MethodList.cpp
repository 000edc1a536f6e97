#include "Auth/MethodList.h"

#include <cstring>

namespace SSHEngine {

MethodList fetchMethodList(LIBSSH2_SESSION *session, const char *user) {
    // A server that has let the user in when the agent's turn asked for the methods never answers
    // this question again.
    const char *const list =
        libssh2_userauth_authenticated(session)
            ? nullptr
            : libssh2_userauth_list(session, user, static_cast<unsigned>(std::strlen(user)));
    if (list)
        return {.names = list};
    return {.names = std::nullopt,
            .error = libssh2_session_last_error(session, nullptr, nullptr, 0)};
}

} // namespace SSHEngine
