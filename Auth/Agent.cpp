// The fourth stage of `start`: offers every identity of a running SSH agent.
#include "Session/SSHSession_libssh2.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr int noMoreIdentities = 1; // libssh2_agent_get_identity(3)

// Whether the server takes an identity, and else the code that ended the walk over them.
struct Walk {
    bool authenticated = false;
    int code = 0;
};

Walk offerIdentities(LIBSSH2_AGENT *agent, const char *user) {
    libssh2_agent_publickey *identity = nullptr;
    while (true) {
        libssh2_agent_publickey *const previous = identity;
        if (const int code = libssh2_agent_get_identity(agent, &identity, previous))
            return {.authenticated = false, .code = code};
        if (libssh2_agent_userauth(agent, user, identity) == 0)
            return {.authenticated = true};
    }
}

} // namespace

bool SSHSession_libssh2::_authenticateWithAgent(SSHErrorRef *error) {
    return _onSessionQueue(error, [&](LIBSSH2_SESSION *session) {
        if (_offerAgentIdentities(session, error))
            return true; // the agent stays connected until the teardown
        _freeAgent();
        return false;
    });
}

bool SSHSession_libssh2::_offerAgentIdentities(LIBSSH2_SESSION *session, SSHErrorRef *error) {
    const auto fail = [&](const char *function, int code) {
        if (error)
            *error = _errorFromFunction(function, code);
        return false;
    };
    mAgent = libssh2_agent_init(session);
    if (!mAgent)
        return fail("libssh2_agent_init", libssh2_session_last_errno(session));
    if (const int code = libssh2_agent_connect(mAgent))
        return fail("libssh2_agent_connect", code);

    const char *const user = _requiredUser("-[SSHSession_libssh2 _authenticateWithAgent:]");
    const char *const methods =
        libssh2_userauth_list(session, user, static_cast<unsigned>(std::strlen(user)));
    if (!methods) {
        std::fputs("libssh2_userauth_list did not return any authentication methods.\n", stderr);
        return false;
    }
    if (!std::strstr(methods, "publickey"))
        return false;
    if (const int code = libssh2_agent_list_identities(mAgent))
        return fail("libssh2_agent_list_identities", code);

    const Walk walk = offerIdentities(mAgent, user);
    if (!walk.authenticated && walk.code != noMoreIdentities)
        return fail("libssh2_agent_get_identity", walk.code);
    if (!walk.authenticated && error)
        *error = _connectionError("SSH could not authenticate using ssh-agent.", 0);
    return walk.authenticated;
}
