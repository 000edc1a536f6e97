// The fifth stage of `start`: the methods that the server offers, in this library's own order.
#include "Session/SSHSession_libssh2.h"

#include "Auth/MethodTranscript.h"

#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace {

std::vector<std::string> hostKeyAlgorithms(LIBSSH2_SESSION *session) {
    const char **names = nullptr;
    const int count = libssh2_session_supported_algs(session, LIBSSH2_METHOD_HOSTKEY, &names);
    if (count < 1)
        return {};
    std::vector<std::string> algorithms(names, names + count);
    libssh2_free(session, static_cast<void *>(names));
    return algorithms;
}

} // namespace

bool SSHSession_libssh2::_authenticateManually(SSHErrorRef *error) {
    const SessionHandle handle = _session();
    std::optional<OfferedMethods> offered;
    int listError = 0;
    const bool asked = _onSessionQueue(error, [&](LIBSSH2_SESSION *session) {
        const char *const user = _requiredUser("-[SSHSession_libssh2 _authenticateManually:]");
        // A server that has let the user in when the agent's turn asked for the methods never
        // answers this question again.
        const char *const list =
            libssh2_userauth_authenticated(session)
                ? nullptr
                : libssh2_userauth_list(session, user, static_cast<unsigned>(std::strlen(user)));
        if (list)
            offered = OfferedMethods::parse(list);
        else
            listError = libssh2_session_last_error(session, nullptr, nullptr, 0);
        return true;
    });
    if (!asked)
        return false;

    MethodErrors errors;
    if (offered && _tryMethods(*offered, errors))
        return true;
    if (!error)
        return false;
    *error =
        offered
            ? _connectionError(methodTranscript(*offered, errors,
                                                offered->publicKey ? hostKeyAlgorithms(handle.get())
                                                                   : std::vector<std::string>()),
                               0)
            : _connectionError("SSH could not authenticate because it could not get a "
                               "list of the available authentication methods. " +
                                   _stringForErrorCode(listError),
                               listError);
    return false;
}

bool SSHSession_libssh2::_tryMethods(const OfferedMethods &offered, MethodErrors &errors) {
    using Engine = SSHSession_libssh2;
    struct Method {
        bool isOffered;
        bool (Engine::*operation)(SSHErrorRef *);
        SSHErrorRef &error;
    };
    const std::array<Method, 3> methods = {{
        {offered.publicKey, &Engine::_authenticateWithPublicKey, errors.publicKey},
        {offered.password, &Engine::_authenticateWithPassword, errors.password},
        {offered.keyboardInteractive, &Engine::_authenticateWithKeyboard,
         errors.keyboardInteractive},
    }};
    for (const Method &method : methods)
        if (method.isOffered && (this->*method.operation)(&method.error))
            return true;
    return false;
}
