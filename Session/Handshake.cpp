// The second stage of `start`: the SSH handshake, and the watch for the server's disconnect.
#include "Session/SSHSession_libssh2.h"

#include "Identity/RecordedKeys.h"
#include "Platform/Text.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"
#include "Session/LibraryCallback.h"

#include <cerrno>
#include <string>
#include <string_view>
#include <utility>

using SSHEngine::Connection;
using SSHEngine::connectionError;
using SSHEngine::fail;

namespace {

constexpr unsigned keepAliveSeconds = 30;

// The library's texts, of which either may be missing. Empty ones count as not sent, because on the
// wire both are always there; bytes that are not UTF-8 become U+FFFD.
void add(SSHError::UserInfo &userInfo, const std::string &key, const char *text, int length) {
    if (text && length > 0)
        userInfo[key] = SSHPlatform::decodedUTF8({text, static_cast<std::size_t>(length)});
}

// The library calls this in the middle of whichever call reads the server's message. It only tells:
// that call then fails by itself, and its caller tears the connection down.
void libssh2_disconnect_callback(LIBSSH2_SESSION * /*session*/, int reason, const char *message,
                                 int messageLength, const char *language, int languageLength,
                                 void **abstract) {
    constexpr int byApplication = 11; // in good order; RFC 4253, section 11.1
    SSHErrorRef error;
    if (reason != byApplication) {
        SSHError::UserInfo userInfo;
        add(userInfo, SSHError::NSLocalizedDescriptionKey, message, messageLength);
        add(userInfo, SSHError::languageKey, language, languageLength);
        error = std::make_shared<SSHError>(SSHError::disconnectDomain, reason, std::move(userInfo));
    }
    Connection &connection = Connection::of(abstract);
    connection.isEndTold = true;
    connection.engine.didDisconnect(error);
}

bool openSession(Connection &connection, SSHErrorRef *error) {
    const auto failWith = [&](const std::string &reason, int code) {
        return fail(error, [&] { return connectionError(connection.engine, reason, code); });
    };
    LIBSSH2_SESSION *const session = connection.openSession();
    if (!session)
        return failWith("Could not create an SSH session.", errno);
    libssh2_session_flag(session, LIBSSH2_FLAG_COMPRESS, 1);
    if (connection.engine.options().knowsEveryHostKeyType)
        SSHEngine::preferRecordedKeyTypes(connection);
    if (const int code = libssh2_session_handshake(session, connection.socket()))
        return failWith("Could not complete the handshake. " +
                            SSHSession_libssh2::_stringForErrorCode(code),
                        code);

    // Only now: a disconnect during the handshake is a failed start, not a lost connection.
    SSHEngine::setLibraryCallback(session, LIBSSH2_CALLBACK_DISCONNECT,
                                  libssh2_disconnect_callback);
    libssh2_session_set_blocking(session, 1);
    if (!connection.engine.options().watchesConnection) {
        libssh2_keepalive_config(session, 0, keepAliveSeconds);
        libssh2_keepalive_send(session, nullptr);
    }
    return true;
}

} // namespace

bool SSHSession_libssh2::_startSession(Connection &connection, SSHErrorRef *error) {
    return onSessionQueue(connection, error, [&](LIBSSH2_SESSION * /*none yet*/) {
        return openSession(connection, error);
    });
}
