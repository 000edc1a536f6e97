// The fifth stage of `start`: the methods that the server offers, in this library's own order.
#include "Session/SSHSession_libssh2.h"

#include "Auth/MethodTranscript.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"

#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

using SSHEngine::connectionError;
using SSHEngine::MethodAttempt;

namespace {

using Engine = SSHSession_libssh2;

struct Method {
    const char *name; // RFC 4252 and RFC 4256
    const char *displayName;
    bool (Engine::*operation)(SSHEngine::Connection &, SSHErrorRef *);
    bool usesKeys;
};

constexpr std::array<Method, 3> methodsInOrder = {{
    {"publickey", "public key exchange", &Engine::_authenticateWithPublicKey, true},
    {"password", "password", &Engine::_authenticateWithPassword, false},
    {"keyboard-interactive", "keyboard-interactive", &Engine::_authenticateWithKeyboard, false},
}};

std::vector<std::string> hostKeyAlgorithms(LIBSSH2_SESSION *session) {
    const char **names = nullptr;
    const int count = libssh2_session_supported_algs(session, LIBSSH2_METHOD_HOSTKEY, &names);
    if (count < 1)
        return {};
    std::vector<std::string> algorithms(names, names + count);
    libssh2_free(session, static_cast<void *>(names));
    return algorithms;
}

// The server's comma-separated list of the methods that it offers; none, with the library's code,
// when there is no answer.
struct MethodList {
    std::optional<std::string> names;
    int error = 0;
};

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

} // namespace

bool SSHSession_libssh2::_authenticateManually(Connection &connection, SSHErrorRef *error) {
    MethodList offered;
    const bool asked = onSessionQueue(connection, error, [&](LIBSSH2_SESSION *session) {
        offered = fetchMethodList(
            session,
            SSHEngine::requiredUser(*this, "-[SSHSession_libssh2 _authenticateManually:]"));
        return true;
    });
    if (!asked)
        return false;

    std::vector<MethodAttempt> attempts;
    for (const Method &method : methodsInOrder) {
        if (!offered.names || offered.names->find(method.name) == std::string::npos)
            continue;
        MethodAttempt attempt = {.displayName = method.displayName, .error = nullptr};
        if ((this->*method.operation)(connection, &attempt.error))
            return true;
        if (method.usesKeys && error)
            attempt.algorithms = hostKeyAlgorithms(connection.session());
        attempts.push_back(std::move(attempt));
    }
    return SSHEngine::fail(error, [&] {
        return offered.names
                   ? connectionError(*this, SSHEngine::methodTranscript(attempts), 0)
                   : connectionError(*this,
                                     "SSH could not authenticate because it could not get a list "
                                     "of the available authentication methods. " +
                                         _stringForErrorCode(offered.error),
                                     offered.error);
    });
}
