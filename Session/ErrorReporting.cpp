#include "Session/ErrorReporting.h"

#include "Platform/Assertion.h"
#include "Platform/Text.h"
#include "Session/Causes.h"
#include "Session/Connection.h"
#include "Session/SSHSession_libssh2.h"
#include "Session/TimeLimit.h"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <utility>

using SSHPlatform::textOrNull;

SSHErrorRef SSHSession_libssh2::_errorWithDescription(const std::optional<std::string> &description,
                                                      const std::optional<std::string> &reason,
                                                      std::int32_t code, SSHErrorCause cause) {
    SSHError::UserInfo userInfo;
    if (description) {
        userInfo[SSHError::NSLocalizedDescriptionKey] = *description;
        if (reason)
            userInfo[SSHError::NSLocalizedFailureReasonErrorKey] = *reason;
    }
    return std::make_shared<SSHError>(SSHError::libssh2ErrorDomain, code, std::move(userInfo),
                                      cause);
}

SSHErrorRef SSHSession_libssh2::_errorFromFunction(LIBSSH2_SESSION *session,
                                                   const std::string &function, std::int32_t code,
                                                   SSHErrorCause cause) {
    std::string reason = _stringForErrorCode(code);
    char *message = nullptr;
    if (session)
        libssh2_session_last_error(session, &message, nullptr, 0);
    if (message && *message)
        reason += fmt::format(" {}", SSHPlatform::decodedUTF8(message));
    return std::make_shared<SSHError>(
        SSHError::libssh2ErrorDomain, code,
        SSHError::UserInfo{
            {SSHError::NSLocalizedDescriptionKey,
             fmt::format("An error occurred in {}. ({})", function, code)},
            {SSHError::NSLocalizedFailureReasonErrorKey, reason},
            {SSHError::NSLocalizedRecoverySuggestionErrorKey, reason},
        },
        cause);
}

// Codes without a sentence, the even ones from -2 to -12 among them, show as their number.
std::string SSHSession_libssh2::_stringForErrorCode(std::int32_t code) {
    switch (code) {
    case LIBSSH2_ERROR_SOCKET_NONE:
        return "The socket is invalid.";
    case LIBSSH2_ERROR_BANNER_SEND:
        return "Unable to send banner to remote host.";
    case LIBSSH2_ERROR_KEX_FAILURE:
        return "Encryption key exchange with the remote host failed.";
    case LIBSSH2_ERROR_SOCKET_SEND:
        return "Unable to send data on socket.";
    case LIBSSH2_ERROR_TIMEOUT:
        return "The socket timed out.";
    case LIBSSH2_ERROR_SOCKET_DISCONNECT:
        return "The socket was disconnected.";
    case LIBSSH2_ERROR_PROTO:
        return "An invalid SSH protocol response was received on the socket.";
    case LIBSSH2_ERROR_EAGAIN:
        return "Marked for non-blocking I/O but the call would block.";
    default:
        return fmt::format("Error {}.", code);
    }
}

namespace SSHEngine {

namespace {

// `sentence` ends where the user and the server are named.
SSHErrorRef errorAbout(const SSHSession &session, const char *sentence,
                       const std::optional<std::string> &reason, std::int32_t code,
                       SSHErrorCause cause) {
    return SSHSession_libssh2::_errorWithDescription(
        fmt::format("{} {}@{}.", sentence, textOrNull(session.user()), textOrNull(session.host())),
        reason, code, cause);
}

// What a server did that nobody bears for ever.
struct Blame {
    const char *reason;
    std::int32_t code;
};

std::optional<Blame> blameOf(Ending ending) {
    switch (ending) {
    case Ending::NoVersion:
        return Blame{"The server has sent 1 MB without saying that it speaks SSH. Another kind of "
                     "server may be listening on this port.",
                     LIBSSH2_ERROR_BANNER_RECV};
    case Ending::Flooded:
        return Blame{"The server kept sending what nobody asked for, and was given up after 64 MB.",
                     LIBSSH2_ERROR_PROTO};
    case Ending::AskedTooOften:
        return Blame{"The server asked for the password again and again, and was given up after "
                     "100 times.",
                     LIBSSH2_ERROR_AUTHENTICATION_FAILED};
    case Ending::Unanswered:
        return Blame{"The server has left three keepalives unanswered.", ETIMEDOUT};
    default:
        return std::nullopt;
    }
}

std::string spelled(std::chrono::milliseconds time) {
    const double seconds = std::chrono::duration<double>(time).count();
    return fmt::format("{} {}", seconds, seconds == 1 ? "second" : "seconds");
}

// Where the connection was ended by a time limit.
std::optional<std::string> passedLimit(const Connection &connection) {
    const Ending ending = connection.ending();
    const std::string time = spelled(limitOf(ending, connection.engine.options()));
    switch (ending) {
    case Ending::SlowHandshake:
        return fmt::format("The server has not finished the handshake within {}.", time);
    case Ending::SlowLogIn:
        return fmt::format("The log-in has not finished within {}.", time);
    case Ending::SlowCommand:
        return fmt::format("The command has not ended within {}.", time);
    case Ending::SilentCommand:
        return fmt::format("The command has neither sent nor taken anything for {}.", time);
    default:
        return std::nullopt;
    }
}

} // namespace

SSHErrorRef connectionError(const SSHSession &session, const std::optional<std::string> &reason,
                            std::int32_t code, SSHErrorCause cause) {
    return errorAbout(session, "Dravella could not make an SSH connection to", reason, code, cause);
}

SSHErrorRef lostConnectionError(const SSHSession &session, const std::optional<std::string> &reason,
                                std::int32_t code, SSHErrorCause cause) {
    return errorAbout(session, "Dravella lost the connection to the SSH server", reason, code,
                      cause);
}

SSHErrorRef commandError(const std::string &reason, std::int32_t code, SSHErrorCause cause) {
    return SSHSession_libssh2::_errorWithDescription("Dravella could not execute the SSH command.",
                                                     reason, code, cause);
}

SSHErrorRef notConnectedError() {
    return commandError("The session is not connected.", 0, SSHErrorCause::NotConnected);
}

SSHErrorRef endedStartError(const Connection &connection) {
    const SSHSession &session = connection.engine;
    const Ending ending = connection.ending();
    const SSHErrorCause cause = causeOfEnding(ending);
    if (ending == Ending::Cancelled)
        return connectionError(session, "The session was cancelled while it was connecting.",
                               ECANCELED, cause);
    if (const std::optional<Blame> blame = blameOf(ending))
        return connectionError(session, blame->reason, blame->code, cause);
    if (const std::optional<std::string> reason = passedLimit(connection))
        return connectionError(session, *reason, ETIMEDOUT, cause);
    return connectionError(session, "The session was stopped while it was connecting.", 0,
                           SSHErrorCause::Stopped);
}

SSHErrorRef endedCommandError(const Connection &connection) {
    const SSHErrorCause cause = causeOfEnding(connection.ending());
    if (connection.ending() == Ending::Cancelled)
        return commandError("The command was cancelled. It may still be running on the server.",
                            ECANCELED, cause);
    if (const std::optional<Blame> blame = blameOf(connection.ending()))
        return lostConnectionError(connection.engine, blame->reason, blame->code, cause);
    if (const std::optional<std::string> reason = passedLimit(connection))
        return commandError(*reason + " It may still be running on the server.", ETIMEDOUT, cause);
    return notConnectedError();
}

const char *requiredUser(const SSHSession &session, const char *function) {
    if (!session.user())
        SSHPlatform::assertionFailed("self.user", function, engineSourceName, __LINE__);
    return session.user()->c_str();
}

} // namespace SSHEngine
