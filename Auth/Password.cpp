// The "password" method of RFC 4252, section 8. One attempt; a server that demands a new password
// is answered with failure.
#include "Session/SSHSession_libssh2.h"

#include "Session/ErrorReporting.h"

#include <fmt/format.h>

#include <cstring>

namespace {

// Chooses no new password. Without a callback the library reports an expired password as a wrong
// one (-18); with one that declines, as expired (-15).
void declineNewPassword(LIBSSH2_SESSION * /*session*/, char ** /*password*/, int * /*length*/,
                        void ** /*abstract*/) {}

} // namespace

bool SSHSession_libssh2::_authenticateWithPassword(Connection &connection, SSHErrorRef *error) {
    if (!user() || !password()) {
        if (error)
            *error = nullptr;
        return false;
    }
    return onSessionQueue(connection, error, [&](LIBSSH2_SESSION *session) {
        const char *const name =
            SSHEngine::requiredUser(*this, "-[SSHSession_libssh2 _authenticateWithPassword:]");
        // Both texts end at their first zero byte.
        const char *const secret = password()->c_str();
        const int code = libssh2_userauth_password_ex(
            session, name, static_cast<unsigned>(std::strlen(name)), secret,
            static_cast<unsigned>(std::strlen(secret)), declineNewPassword);
        return code == 0 || SSHEngine::fail(error, [&] {
                   return SSHEngine::connectionError(
                       *this,
                       fmt::format("SSH could not authenticate using the ssh user password. ({})",
                                   code),
                       code);
               });
    });
}
