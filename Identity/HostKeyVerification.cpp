// The third stage of `start`: is this the server that the user knows under this name?
#include "Session/SSHSession_libssh2.h"

#include "Identity/HostKeyCheck.h"
#include "Platform/Path.h"
#include "Platform/Text.h"

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

} // namespace

// Without a host key the caller's error is replaced below by the one that every failed check gives.
void SSHSession_libssh2::_fetchAndCheckHostKey(LIBSSH2_SESSION *session, HostKeyCheck &check,
                                               SSHErrorRef *error) {
    if (!fetchHostKey(session, check)) {
        if (error)
            *error = _errorFromFunction("libssh2_session_hostkey", 0);
        check.checkResult = LIBSSH2_KNOWNHOST_CHECK_FAILURE;
        return;
    }
    check.knownHosts = libssh2_knownhost_init(session);
    if (!check.knownHosts) {
        SSHPlatform::log("Could not check for known_hosts because libssh2_knownhost_init failed.");
        check.checkResult = LIBSSH2_KNOWNHOST_CHECK_NOTFOUND;
        return;
    }
    const int code = libssh2_knownhost_readfile(check.knownHosts, check.knownHostsPath.c_str(),
                                                LIBSSH2_KNOWNHOST_FILE_OPENSSH);
    if (code < 0) {
        SSHPlatform::log(
            "Could not check for known_hosts because libssh2_knownhost_readfile failed. " +
            _errorFromFunction("libssh2_knownhost_addc", code)->text());
        check.checkResult = LIBSSH2_KNOWNHOST_CHECK_NOTFOUND;
        check.readError = code;
        return;
    }
    check.checkResult = checkKnownHosts(check, host().value_or(""), port());
}

bool SSHSession_libssh2::_validatedHostFingerprint(SSHErrorRef *error) {
    HostKeyCheck check;
    check.knownHostsPath = SSHPlatform::expandingTilde("~/.ssh/known_hosts");
    // Held to the end, so that neither the collection nor the prompt loses the session to a `stop`.
    const SessionHandle handle = _session();

    const bool checked = _onSessionQueue(error, [&](LIBSSH2_SESSION *session) {
        _fetchAndCheckHostKey(session, check, error);
        return true;
    });
    if (!checked)
        return false;

    if (needsConfirmation(check)) {
        SSHPlatform::askOnMainThread([&] { _confirmHostKey(check); });
    } else if (check.checkResult == LIBSSH2_KNOWNHOST_CHECK_FAILURE && error) {
        *error = _connectionError(
            "Could not check against known_hosts because libssh2_knownhost_checkp failed.",
            libssh2_session_last_errno(handle.get()));
    }

    mSessionQueue.sync([&] {
        if (check.knownHosts)
            libssh2_knownhost_free(check.knownHosts);
    });
    return check.checkResult == LIBSSH2_KNOWNHOST_CHECK_MATCH;
}
