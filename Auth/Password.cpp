// The "password" method of RFC 4252, section 8. One attempt; a server that demands a new password
// is answered with failure. The user is asked only where the session's options say so.
#include "Session/SSHSession_libssh2.h"

#include "Auth/Attempts.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"
#include "Session/Question.h"

#include <SSHSession/SSHSessionPasswordPanel.h>

#include <fmt/format.h>

#include <cstring>

namespace {

// Chooses no new password. Without a callback the library reports an expired password as a wrong
// one (-18); with one that declines, as expired (-15).
void declineNewPassword(LIBSSH2_SESSION * /*session*/, char ** /*password*/, int * /*length*/,
                        void ** /*abstract*/) {}

// Kept for the rest of the log-in. Nobody is asked twice, nor for a server that has gone.
void askForPassword(SSHEngine::Connection &connection) {
    const SSHSession_libssh2 &engine = connection.engine;
    SSHEngine::LogIn &logIn = connection.logIn;
    if (logIn.password || logIn.refusedPassword || logIn.hasEnded || !engine.holds(connection))
        return;
    SSHEngine::askOnMainThread(connection, [&] {
        std::optional<std::string> typed =
            SSHSessionPasswordPanel(connection.endDescriptor())
                .passwordForUser(*engine.user(), engine.host().value_or(""));
        logIn.password = SSHPlatform::Secret::takenFrom(typed);
    });
    logIn.refusedPassword = !logIn.password;
}

} // namespace

bool SSHSession_libssh2::_authenticateWithPassword(Connection &connection, SSHErrorRef *error) {
    const bool mayAsk = options().asksForPassword && user() && !password();
    if (mayAsk)
        askForPassword(connection);
    const std::optional<std::string> &given =
        password() ? password() : connection.logIn.password.text();
    SSHAttempt attempt;
    attempt.method = "password";
    if (!user() || !given) {
        attempt.result = SSHAttemptResult::NotGiven;
        SSHEngine::noteAttempt(connection, attempt);
        if (error)
            *error = mayAsk ? SSHEngine::connectionError(*this, "No password was given.", 0,
                                                         SSHErrorCause::PasswordMissing)
                            : nullptr;
        return false;
    }
    return onSessionQueue(connection, error, [&](LIBSSH2_SESSION *session) {
        const char *const name =
            SSHEngine::requiredUser(*this, "-[SSHSession_libssh2 _authenticateWithPassword:]");
        // Both texts end at their first zero byte.
        const char *const secret = given->c_str();
        connection.logIn.isPasswordSent = true;
        const int code = libssh2_userauth_password_ex(
            session, name, static_cast<unsigned>(std::strlen(name)), secret,
            static_cast<unsigned>(std::strlen(secret)), declineNewPassword);
        SSHEngine::setResult(attempt, session, code);
        SSHEngine::noteAttempt(connection, attempt);
        connection.logIn.mayHaveFactor = code == LIBSSH2_ERROR_AUTHENTICATION_FAILED;
        return code == 0 || SSHEngine::fail(error, [&] {
                   return SSHEngine::connectionError(
                       *this,
                       fmt::format("SSH could not authenticate using the ssh user password. ({})",
                                   code),
                       code,
                       SSHEngine::causeOfAttempt(attempt, SSHEngine::situationOf(connection)));
               });
    });
}
