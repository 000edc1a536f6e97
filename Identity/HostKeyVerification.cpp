// The third stage of `start`: is this the server that the user knows under this name?
#include "Session/SSHSession_libssh2.h"

#include <SSHSession/Base64.h>

#include "Identity/HostKeyCheck.h"
#include "Identity/KnownHostsFile.h"
#include "Identity/RecordedKeys.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"
#include "Session/KeyEncoding.h"
#include "Session/KeyType.h"
#include "Session/Question.h"

#include <filesystem>
#include <system_error>

using SSHEngine::Connection;
using SSHEngine::fail;
using SSHEngine::HostKeyCheck;

namespace {

bool fetchHostKey(LIBSSH2_SESSION *session, HostKeyCheck &check) {
    std::size_t length = 0;
    const char *key = libssh2_session_hostkey(session, &length, &check.hostKeyType);
    if (!key) {
        SSHPlatform::log("Could not get host fingerprint because libssh2_session_hostkey failed.");
        return false;
    }
    if (length == 0) {
        SSHPlatform::log("Could not get host fingerprint because length of data returne dfrom "
                         "libssh2_session_hostkey is 0.");
        return false;
    }
    check.hostPublicKey.assign(key, length);
    check.hostFingerprint = SSHPlatform::base64(check.hostPublicKey);
    check.facts.type = SSHEngine::keyTypeIn(check.hostPublicKey);
    check.facts.fingerprint = SSHEngine::keyFingerprint(check.hostPublicKey);
    return true;
}

// The port is passed, so entries named "[host]:port" are looked up before those of the plain host
// name. Without key-type bits a key of another algorithm under the same name is a mismatch.
int checkKnownHosts(const HostKeyCheck &check, const std::string &host, std::uint16_t port) {
    libssh2_knownhost *matched = nullptr;
    return libssh2_knownhost_checkp(check.knownHosts, host.c_str(), port,
                                    check.hostPublicKey.data(), check.hostPublicKey.size(),
                                    LIBSSH2_KNOWNHOST_TYPE_PLAIN | LIBSSH2_KNOWNHOST_KEYENC_RAW,
                                    &matched);
}

bool needsConfirmation(const HostKeyCheck &check) {
    return check.checkResult == LIBSSH2_KNOWNHOST_CHECK_MISMATCH ||
           check.checkResult == LIBSSH2_KNOWNHOST_CHECK_NOTFOUND;
}

// The library waits for whoever writes to a named pipe, which an examination must not.
int readKnownHosts(const SSHSession_libssh2 &engine, const HostKeyCheck &check) {
    std::error_code failure;
    if (engine.asksNobody && std::filesystem::is_other(check.knownHostsPath, failure))
        return LIBSSH2_ERROR_FILE;
    return libssh2_knownhost_readfile(check.knownHosts, check.knownHostsPath.c_str(),
                                      LIBSSH2_KNOWNHOST_FILE_OPENSSH);
}

// Answers the library's last error number when the check itself fails.
int fetchAndCheck(const Connection &connection, LIBSSH2_SESSION *session, HostKeyCheck &check,
                  SSHErrorRef *error) {
    const SSHSession &engine = connection.engine;
    const auto errorIn = [&](const char *function, int code) {
        return SSHSession_libssh2::_errorFromFunction(session, function, code,
                                                      SSHErrorCause::HostKeyCheckFailed);
    };
    // Without a host key the caller's error is replaced by the one that every failed check gives.
    if (!fetchHostKey(session, check)) {
        fail(error, [&] { return errorIn("libssh2_session_hostkey", 0); });
        check.checkResult = LIBSSH2_KNOWNHOST_CHECK_FAILURE;
        return libssh2_session_last_errno(session);
    }
    if (engine.options().knowsEveryHostKeyType)
        return SSHEngine::checkRecordedKeys(connection, check);
    check.knownHosts = libssh2_knownhost_init(session);
    if (!check.knownHosts) {
        SSHPlatform::log("Could not check for known_hosts because libssh2_knownhost_init failed.");
        return 0;
    }
    const int code = readKnownHosts(connection.engine, check);
    if (code < 0) {
        SSHPlatform::log(
            "Could not check for known_hosts because libssh2_knownhost_readfile failed. " +
            errorIn("libssh2_knownhost_addc", code)->text());
        check.readError = code;
        return 0;
    }
    check.checkResult = checkKnownHosts(check, engine.host().value_or(""), engine.port());
    return libssh2_session_last_errno(session);
}

void noteStanding(const Connection &connection, HostKeyCheck &check) {
    using enum SSHHostKeyStanding;
    SSHHostKeyFacts &facts = check.facts;
    switch (check.checkResult) {
    case LIBSSH2_KNOWNHOST_CHECK_MATCH:
        facts.standing = Match;
        facts.isAccepted = true;
        break;
    case LIBSSH2_KNOWNHOST_CHECK_MISMATCH:
        facts.standing = Changed;
        break;
    case LIBSSH2_KNOWNHOST_CHECK_NOTFOUND:
        facts.standing = Unknown;
        break;
    default:
        facts.standing = facts.standing == Revoked ? Revoked : Failed;
    }
    connection.notes->note([&](SSHFacts &noted) { noted.hostKey = facts; });
}

SSHErrorCause causeOfRefusal(const SSHHostKeyFacts &key) {
    using enum SSHErrorCause;
    if (key.standing == SSHHostKeyStanding::Changed)
        return key.wasAsked ? HostKeyChangedDeclined : HostKeyChangedUnasked;
    return key.wasAsked ? HostKeyUnknownDeclined : HostKeyUnknownUnasked;
}

// The user knows what was answered, and the caller's error stays as it was. What is noted says it
// to whoever asks later.
void ask(const Connection &connection, HostKeyCheck &check) {
    SSHEngine::askOnMainThread(connection, [&] { SSHEngine::confirmHostKey(connection, check); });
    SSHHostKeyFacts &key = check.facts;
    key.isAccepted = check.checkResult == LIBSSH2_KNOWNHOST_CHECK_MATCH;
    SSHErrorRef refusal;
    if (!key.isAccepted && !connection.isShutDown())
        refusal = SSHSession_libssh2::_errorWithDescription(
            "The server's host key was not accepted.",
            key.wasAsked ? "The question was answered with no."
                         : "Nobody has answered the question.",
            0, causeOfRefusal(key));
    connection.notes->note([&](SSHFacts &noted) {
        noted.hostKey = key;
        noted.error = refusal;
    });
}

} // namespace

bool SSHSession_libssh2::_validatedHostFingerprint(Connection &connection, SSHErrorRef *error) {
    HostKeyCheck check;
    check.knownHostsPath = check.mismatchPath = SSHEngine::knownHostsPath();
    int lastError = 0;
    const bool checked = onSessionQueue(connection, error, [&](LIBSSH2_SESSION *session) {
        lastError = fetchAndCheck(connection, session, check, error);
        return true;
    });
    if (!checked)
        return false;
    noteStanding(connection, check);
    const bool isRevoked = check.facts.standing == SSHHostKeyStanding::Revoked;

    if (needsConfirmation(check))
        ask(connection, check);
    else if (check.checkResult == LIBSSH2_KNOWNHOST_CHECK_FAILURE)
        fail(error, [&] {
            return SSHEngine::connectionError(*this, check.failure, lastError,
                                              isRevoked ? SSHErrorCause::HostKeyRevoked
                                                        : SSHErrorCause::HostKeyCheckFailed);
        });

    mSessionQueue.sync([&] {
        if (check.knownHosts)
            libssh2_knownhost_free(check.knownHosts);
    });
    // While the question was shown, a `stop` may have put another connection in its place.
    return check.checkResult == LIBSSH2_KNOWNHOST_CHECK_MATCH && holds(connection);
}
