// The second stage of `start`: the SSH handshake, and the watch for the server's disconnect.
#include "Session/SSHSession_libssh2.h"

#include "Diagnosis/KnownWords.h"
#include "Identity/RecordedKeys.h"
#include "Platform/Text.h"
#include "Session/Causes.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"
#include "Session/LibraryAlgorithms.h"
#include "Session/LibraryCallback.h"
#include "Session/Negotiation.h"

#include <cerrno>
#include <string>
#include <string_view>
#include <utility>

using SSHEngine::Connection;
using SSHEngine::connectionError;
using SSHEngine::fail;
namespace Words = SSHEngine::Words;

namespace {

constexpr unsigned keepAliveSeconds = 30;

// The library's texts, of which either may be missing. Empty ones count as not sent, because on the
// wire both are always there; bytes that are not UTF-8 become U+FFFD.
void add(SSHError::UserInfo &userInfo, const std::string &key, const char *text, int length) {
    if (text && length > 0)
        userInfo[key] = SSHPlatform::decodedUTF8({text, static_cast<std::size_t>(length)});
}

void noteDisconnect(Connection &connection, int reason, const char *message, int length) {
    connection.isDisconnected = true;
    SSHDisconnectFacts said;
    said.code = reason;
    if (message && length > 0)
        said.message = SSHPlatform::decodedUTF8({message, static_cast<std::size_t>(length)});
    connection.notes->note([&](SSHFacts &facts) { facts.disconnect = std::move(said); });
}

// The library calls this in the middle of whichever call reads the server's message. It only tells:
// that call then fails by itself, and its caller tears the connection down.
void libssh2_disconnect_callback(LIBSSH2_SESSION * /*session*/, int reason, const char *message,
                                 int messageLength, const char *language, int languageLength,
                                 void **abstract) {
    constexpr int byApplication = 11; // in good order; RFC 4253, section 11.1
    Connection &connection = Connection::of(abstract);
    noteDisconnect(connection, reason, message, messageLength);
    if (!connection.tellsDisconnect)
        return;
    SSHErrorRef error;
    if (reason != byApplication) {
        SSHError::UserInfo userInfo;
        add(userInfo, SSHError::NSLocalizedDescriptionKey, message, messageLength);
        add(userInfo, SSHError::languageKey, language, languageLength);
        error = std::make_shared<SSHError>(SSHError::disconnectDomain, reason, std::move(userInfo),
                                           SSHErrorCause::DisconnectedByServer);
    }
    connection.isEndTold = true;
    connection.engine.didDisconnect(error);
}

void noteKnown(const Connection &connection) {
    SSHAlgorithms all = SSHEngine::allLibraryAlgorithms(connection.session());
    connection.notes->note([&](SSHFacts &facts) { facts.known = std::move(all); });
}

void noteAgreed(const Connection &connection) {
    const auto agreed = [&](int method) -> std::vector<std::string> {
        const char *const name = libssh2_session_methods(connection.session(), method);
        return name ? std::vector<std::string>{name} : std::vector<std::string>();
    };
    SSHAlgorithms all = {.keyExchange = agreed(LIBSSH2_METHOD_KEX),
                         .hostKey = agreed(LIBSSH2_METHOD_HOSTKEY),
                         .cipherToServer = agreed(LIBSSH2_METHOD_CRYPT_CS),
                         .cipherToClient = agreed(LIBSSH2_METHOD_CRYPT_SC),
                         .macToServer = agreed(LIBSSH2_METHOD_MAC_CS),
                         .macToClient = agreed(LIBSSH2_METHOD_MAC_SC),
                         .compressionToServer = agreed(LIBSSH2_METHOD_COMP_CS),
                         .compressionToClient = agreed(LIBSSH2_METHOD_COMP_SC)};
    connection.notes->note([&](SSHFacts &facts) { facts.server.agreed = std::move(all); });
}

void noteUnconnected(const Connection &connection, int number) {
    connection.notes->note([&](SSHFacts &noted) {
        for (SSHAddressFacts &address : noted.addresses)
            if (std::exchange(address.isConnected, false) || noted.addresses.size() == 1)
                address.error = number;
    });
}

// A server that closes its end before it has sent its whole version counts as one that hung up.
SSHErrorCause causeWithoutVersion(const Connection &connection, std::string_view lines) {
    if (lines.starts_with(Words::tooBusy) || lines.starts_with(Words::penalty))
        return SSHErrorCause::ClosedEarly; // by sshd, which may take the next one
    if (!lines.empty() && !lines.starts_with("SSH-"))
        return SSHErrorCause::NotSSH;
    return connection.hasHungUp() ? SSHErrorCause::ClosedEarly : SSHErrorCause::HandshakeFailed;
}

SSHErrorCause causeOfFailure(const Connection &connection, int code) {
    const SSHFacts facts = connection.notes->facts();
    const SSHServerFacts &server = facts.server;
    // What the system said at once, or later.
    const int told = facts.addresses.size() == 1 ? facts.addresses.front().error : 0;
    const int number = told != 0 ? told : connection.failure();
    const SSHErrorCause connecting = SSHEngine::causeOfConnecting(number);
    if (!server.hasSpoken && connecting != SSHErrorCause::Unknown) {
        noteUnconnected(connection, number);
        return connecting;
    }
    if (code == LIBSSH2_ERROR_ALLOC)
        return SSHErrorCause::NoMemory;
    if (server.version.empty())
        return causeWithoutVersion(connection, server.linesBefore);
    if (server.version.starts_with(Words::ssh1) && !server.version.starts_with(Words::ssh1And2))
        return SSHErrorCause::NotSSH;
    if (server.offer)
        if (const auto missing = SSHEngine::nothingInCommon(facts.known, *server.offer))
            return *missing;
    return SSHEngine::causeOf(code, connection, SSHErrorCause::HandshakeFailed);
}

bool openSession(Connection &connection, SSHErrorRef *error) {
    const auto failWith = [&](const std::string &reason, int code, SSHErrorCause cause) {
        return fail(error, [&] { return connectionError(connection.engine, reason, code, cause); });
    };
    LIBSSH2_SESSION *const session = connection.openSession();
    if (!session)
        return failWith("Could not create an SSH session.", errno, SSHErrorCause::NoMemory);
    libssh2_session_flag(session, LIBSSH2_FLAG_COMPRESS, 1);
    SSHEngine::setLibraryCallback(session, LIBSSH2_CALLBACK_DISCONNECT,
                                  libssh2_disconnect_callback);
    if (connection.engine.options().knowsEveryHostKeyType)
        SSHEngine::preferRecordedKeyTypes(connection);
    noteKnown(connection);
    if (const int code = libssh2_session_handshake(session, connection.socket())) {
        connection.hearTheRest();
        return failWith("Could not complete the handshake. " +
                            SSHSession_libssh2::_stringForErrorCode(code),
                        code, causeOfFailure(connection, code));
    }

    // Only now: a disconnect during the handshake is a failed start, not a lost connection.
    connection.tellsDisconnect = true;
    connection.endHello();
    noteAgreed(connection);
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
