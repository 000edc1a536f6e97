// The second stage of `start`: the SSH handshake, and the watch for the server's disconnect.
#include "Session/SSHSession_libssh2.h"

#include "Session/DisconnectError.h"

#include <cerrno>
#include <string>

namespace {

constexpr unsigned keepAliveSeconds = 30;

// The library calls this in the middle of whichever call reads the server's message. It only tells:
// that call then fails by itself, and its caller tears the connection down.
void libssh2_disconnect_callback(LIBSSH2_SESSION * /*session*/, int reason, const char *message,
                                 int messageLength, const char *language, int languageLength,
                                 void **abstract) {
    auto &session = *static_cast<SSHSession_libssh2 *>(*abstract);
    const SSHErrorRef error =
        disconnectError(reason, {message, message ? static_cast<std::size_t>(messageLength) : 0},
                        {language, language ? static_cast<std::size_t>(languageLength) : 0});
    if (SSHSessionDelegate *delegate = session.delegate())
        delegate->sshSessionDisconnected(session, error);
}

void watchForDisconnect(LIBSSH2_SESSION *session) {
#if LIBSSH2_VERSION_NUM >= 0x010b01
    libssh2_session_callback_set2(
        session, LIBSSH2_CALLBACK_DISCONNECT,
        reinterpret_cast<libssh2_cb_generic *>(libssh2_disconnect_callback));
#else
    libssh2_session_callback_set(session, LIBSSH2_CALLBACK_DISCONNECT,
                                 reinterpret_cast<void *>(libssh2_disconnect_callback));
#endif
}

} // namespace

bool SSHSession_libssh2::_startSession(SSHErrorRef *error) {
    bool succeeded = false;
    mSessionQueue.sync([&] { succeeded = _openSession(error); });
    return succeeded;
}

bool SSHSession_libssh2::_openSession(SSHErrorRef *error) {
    const auto fail = [&](const std::string &reason, int code) {
        if (error)
            *error = _connectionError(reason, code);
        return false;
    };
    if (_wasStopped()) {
        if (error)
            *error = _stoppedError();
        return false;
    }
    LIBSSH2_SESSION *session = libssh2_session_init_ex(nullptr, nullptr, nullptr, this);
    if (!session)
        return fail("Could not create an SSH session.", errno);
    _freeAgent(); // of a connection that was not stopped; it must not outlive its session
    _adoptSession(session);

    libssh2_session_flag(session, LIBSSH2_FLAG_COMPRESS, 1);
    if (const int code = libssh2_session_handshake(session, mSocket))
        return fail("Could not complete the handshake. " + _stringForErrorCode(code), code);

    // Only now: a disconnect during the handshake is a failed start, not a lost connection.
    watchForDisconnect(session);
    libssh2_session_set_blocking(session, 1);
    libssh2_keepalive_config(session, 0, keepAliveSeconds);
    libssh2_keepalive_send(session, nullptr);
    return true;
}
