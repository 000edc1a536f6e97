// The fourth stage of `start`: offers every identity of a running SSH agent.
#include "Auth/Agent.h"

#include "Auth/AgentList.h"
#include "Auth/Attempts.h"
#include "Auth/KeyTranscript.h"
#include "Session/Causes.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"
#include "Session/KeyType.h"
#include "Session/SSHSession_libssh2.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

using SSHEngine::Connection;
using SSHEngine::connectionError;
using SSHEngine::fail;
using SSHEngine::requiredUser;

namespace {

// Answers errno, 0 for success.
int tryToConnect(const char *path) {
    const int probe = SSHEngine::openAgentSocket(path);
    if (probe < 0)
        return errno;
    ::close(probe);
    return 0;
}

// Whether nobody listens on the socket that SSH_AUTH_SOCK names, or takes in nobody for two
// seconds. The library closes the descriptor of an attempt that fails more than once, and with it
// what other threads have opened meanwhile. Of a missing variable it says so by itself.
bool agentHasGone(const Connection &connection) {
    const char *const path = std::getenv("SSH_AUTH_SOCK");
    if (!path)
        return false;
    constexpr int attempts = 100;
    constexpr std::chrono::milliseconds pause(20);
    int number = EAGAIN;
    for (int i = 0; number == EAGAIN && i < attempts; ++i) {
        number = tryToConnect(path);
        if (number == EAGAIN && connection.waitFor(-1, SSHPlatform::WaitFor::Nothing, pause) < 0)
            break; // shut down meanwhile
    }
    return number != 0;
}

} // namespace

SSHAttempt SSHEngine::attemptWith(const libssh2_agent_publickey &identity) {
    SSHAttempt attempt =
        attemptWithKey(identity.comment ? identity.comment : "",
                       {reinterpret_cast<const char *>(identity.blob), identity.blob_len});
    attempt.isFromAgent = true;
    return attempt;
}

// A user without an agent has not tried one.
void SSHEngine::noteAgentFailure(const Connection &connection, const char *function, int code) {
    if (!std::getenv("SSH_AUTH_SOCK"))
        return;
    SSHAttempt attempt = attemptWithKey("", "");
    attempt.isFromAgent = true;
    attempt.result = SSHAttemptResult::Unusable;
    attempt.remark =
        SSHSession_libssh2::_errorFromFunction(connection.session(), function, code)->text();
    noteAttempt(connection, std::move(attempt));
}

// Where the last place in the agent's queue is the probe's, the library would wait for the next for
// ever. An examination, which must end, asks the agent in its own way first.
int SSHEngine::connectToAgent(const Connection &connection, LIBSSH2_AGENT *agent) {
    const bool isMute = connection.engine.asksNobody && !agentFacts().problem.empty();
    if (!isMute && !agentHasGone(connection))
        return libssh2_agent_connect(agent);
    libssh2_session_set_last_error(connection.session(), LIBSSH2_ERROR_AGENT_PROTOCOL,
                                   "failed connecting with agent"); // the library's own words
    return LIBSSH2_ERROR_AGENT_PROTOCOL;
}

namespace {

// Whether the server takes an identity, and else the code that ended the walk over them.
struct Walk {
    bool authenticated = false;
    int code = 0;
    std::size_t leftOut = 0; // identities
};

bool offer(const Connection &connection, const char *user, libssh2_agent_publickey *identity) {
    const int code = libssh2_agent_userauth(connection.agent(), user, identity);
    SSHAttempt attempt = SSHEngine::attemptWith(*identity);
    SSHEngine::setResult(attempt, connection.session(), code);
    SSHEngine::noteAttempt(connection, std::move(attempt));
    return code == 0;
}

// `most` of them at most, unless it is 0.
Walk offerIdentities(const Connection &connection, const char *user, std::size_t most) {
    LIBSSH2_AGENT *const agent = connection.agent();
    Walk walk;
    libssh2_agent_publickey *identity = nullptr;
    for (std::size_t count = 1;; ++count) {
        libssh2_agent_publickey *const previous = identity;
        walk.code = libssh2_agent_get_identity(agent, &identity, previous);
        if (walk.code != 0)
            return walk;
        if (most != 0 && count > most)
            ++walk.leftOut;
        else if (offer(connection, user, identity))
            return {.authenticated = true};
    }
}

bool authenticate(Connection &connection, SSHErrorRef *error) {
    LIBSSH2_SESSION *const session = connection.session();
    const auto failIn = [&](const char *function, int code) {
        SSHEngine::noteAgentFailure(connection, function, code);
        return fail(error, [&] {
            return SSHSession_libssh2::_errorFromFunction(
                session, function, code,
                SSHEngine::causeOf(code, connection, SSHErrorCause::AgentFailed));
        });
    };
    LIBSSH2_AGENT *const agent = connection.openAgent();
    if (!agent)
        return failIn("libssh2_agent_init", libssh2_session_last_errno(session));
    if (const int code = SSHEngine::connectToAgent(connection, agent))
        return failIn("libssh2_agent_connect", code);

    const char *const user =
        requiredUser(connection.engine, "-[SSHSession_libssh2 _authenticateWithAgent:]");
    const char *const methods =
        libssh2_userauth_list(session, user, static_cast<unsigned>(std::strlen(user)));
    if (!methods) {
        std::fputs("libssh2_userauth_list did not return any authentication methods.\n", stderr);
        return false;
    }
    SSHEngine::noteMethods(connection, methods);
    if (!std::strstr(methods, "publickey"))
        return false;
    if (const int code = libssh2_agent_list_identities(agent))
        return failIn("libssh2_agent_list_identities", code);

    const Walk walk =
        offerIdentities(connection, user, connection.engine.options().maximumAgentKeys);
    if (!walk.authenticated && walk.code != SSHEngine::noMoreIdentities)
        return failIn("libssh2_agent_get_identity", walk.code);
    return walk.authenticated || fail(error, [&] {
               const std::string leftOut = SSHEngine::identitiesLeftOutText(walk.leftOut);
               return connectionError(connection.engine,
                                      "SSH could not authenticate using ssh-agent." +
                                          (leftOut.empty() ? "" : "\n" + leftOut),
                                      0, SSHEngine::logInCause(connection));
           });
}

} // namespace

bool SSHSession_libssh2::_authenticateWithAgent(Connection &connection, SSHErrorRef *error) {
    return onSessionQueue(connection, error, [&](LIBSSH2_SESSION * /*session*/) {
        const bool authenticated = authenticate(connection, error);
        if (!authenticated)
            connection.closeAgent(); // else it stays connected until the teardown
        return authenticated;
    });
}
