// The "keyboard-interactive" method of RFC 4256, answered from the session's password. The user is
// never asked.
#include "Session/SSHSession_libssh2.h"

#include "Session/Connection.h"
#include "Session/ErrorReporting.h"
#include "Session/WipingAllocator.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace {

// Whatever a single prompt asks, it gets the password; several prompts at once cannot all mean it,
// so they get nothing. The library frees the text.
void libssh2_keyboard_callback(const char * /*name*/, int /*nameLength*/,
                               const char * /*instruction*/, int /*instructionLength*/,
                               int promptCount, const LIBSSH2_USERAUTH_KBDINT_PROMPT * /*prompts*/,
                               LIBSSH2_USERAUTH_KBDINT_RESPONSE *responses, void **abstract) {
    auto &connection = SSHEngine::Connection::of(abstract);
    if (connection.isAskedTooOften() || promptCount != 1)
        return;
    const auto &password = connection.engine.password();
    if (!password)
        return;
    auto *const text = static_cast<char *>(SSHEngine::allocateForLibrary(password->size()));
    if (!text)
        return;
    std::copy(password->begin(), password->end(), text);
    responses[0].text = text;
    responses[0].length = static_cast<unsigned>(password->size());
}

std::string failureText(int code) {
    switch (code) {
    case LIBSSH2_ERROR_TIMEOUT:
        return " Failed because of timeout.\n";
    case LIBSSH2_ERROR_AUTHENTICATION_FAILED:
        return " Authentication failed.\n";
    default:
        return fmt::format(" ({})", code);
    }
}

} // namespace

bool SSHSession_libssh2::_authenticateWithKeyboard(Connection &connection, SSHErrorRef *error) {
    return onSessionQueue(connection, error, [&](LIBSSH2_SESSION *session) {
        const char *const name =
            SSHEngine::requiredUser(*this, "-[SSHSession_libssh2 _authenticateWithKeyboard:]");
        const int code = libssh2_userauth_keyboard_interactive_ex(
            session, name, static_cast<unsigned>(std::strlen(name)), libssh2_keyboard_callback);
        return code == 0 || SSHEngine::fail(error, [&] {
                   return SSHEngine::connectionError(
                       *this,
                       "SSH could not authenticate using keyboard-interactive." + failureText(code),
                       code);
               });
    });
}
