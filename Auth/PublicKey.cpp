// Authentication with key files: the session's own, then the standard pairs in ~/.ssh. Every step
// is written to a transcript, which becomes the failure reason when no key succeeds.
#include "Session/SSHSession_libssh2.h"

#include "Auth/KeyTranscript.h"
#include "Platform/Path.h"

#include <SSHSession/SSHSessionPasswordPanel.h>

#include <array>
#include <cstring>

namespace {

// Asked on the main thread; none when the user cancels or enters nothing, or nobody can be asked.
std::optional<std::string> requestPassphrase(const std::string &keyName) {
    std::optional<std::string> passphrase;
    SSHPlatform::askOnMainThread(
        [&] { passphrase = SSHSessionPasswordPanel().passwordForSSHKey(keyName); });
    return passphrase;
}

std::optional<std::string> standardized(const std::optional<std::string> &path) {
    return path ? std::optional(SSHPlatform::standardizedPath(*path)) : std::nullopt;
}

const char *textOrNull(const std::optional<std::string> &text) {
    return text ? text->c_str() : nullptr;
}

} // namespace

bool SSHSession_libssh2::_authenticateWithPublicKey(SSHErrorRef *error) {
    KeyTranscript transcript;
    if (_tryUserSpecifiedKey(transcript))
        return true;
    for (const char *name : {"id_dsa", "id_rsa"}) // in this order
        if (_tryStandardKey(name, transcript))
            return true;
    if (error)
        *error = _connectionError(transcript.text(), 0);
    return false;
}

// Tried without a public key file, even if one lies beside it: the library derives the public key.
bool SSHSession_libssh2::_tryUserSpecifiedKey(KeyTranscript &transcript) {
    if (!keyFilePath())
        return false;
    if (SSHPlatform::fileExists(*keyFilePath()))
        return _tryKeyWithPrompt({.publicKey = std::nullopt, .privateKey = *keyFilePath()},
                                 transcript);
    transcript.userKeyIsMissing(*keyFilePath());
    return false;
}

// Tried only as a complete pair.
bool SSHSession_libssh2::_tryStandardKey(const std::string &name, KeyTranscript &transcript) {
    const std::string directory = SSHPlatform::expandingTilde("~/.ssh");
    const std::string privateKey = SSHPlatform::appendingPathComponent(directory, name);
    const std::string publicKey = privateKey + ".pub";
    for (const std::string &path : {publicKey, privateKey}) {
        if (!SSHPlatform::fileExists(path)) {
            transcript.standardKeyIsMissing(path);
            return false;
        }
    }
    return _tryKeyWithPrompt({.publicKey = publicKey, .privateKey = privateKey}, transcript);
}

// Only "the server would take the key, but the key cannot sign" asks for a pass phrase, and only
// once.
bool SSHSession_libssh2::_tryKeyWithPrompt(const KeyFiles &files, KeyTranscript &transcript) {
    const int code = _tryKey(files, std::nullopt, transcript);
    if (code != LIBSSH2_ERROR_PUBLICKEY_UNVERIFIED)
        return code == 0;
    transcript.asking();
    const std::optional<std::string> passphrase = requestPassphrase(
        SSHPlatform::deletingPathExtension(SSHPlatform::lastPathComponent(files.privateKey)));
    if (!passphrase) {
        transcript.noPassphrase();
        return false;
    }
    const KeyFiles exact = {.publicKey = standardized(files.publicKey),
                            .privateKey = SSHPlatform::standardizedPath(files.privateKey)};
    return _tryKey(exact, passphrase, transcript) == 0;
}

int SSHSession_libssh2::_tryKey(const KeyFiles &files, const std::optional<std::string> &passphrase,
                                KeyTranscript &transcript) {
    const char *const user = _requiredUser("-[SSHSession_libssh2 _authenticateWithPublicKey:]");
    transcript.trying(files, passphrase.has_value());
    int code = LIBSSH2_ERROR_SOCKET_DISCONNECT; // when `stop` has taken the session away
    _onSessionQueue(nullptr, [&](LIBSSH2_SESSION *session) {
        code = libssh2_userauth_publickey_fromfile_ex(
            session, user, static_cast<unsigned>(std::strlen(user)), textOrNull(files.publicKey),
            files.privateKey.c_str(), textOrNull(passphrase));
        return code == 0;
    });
    transcript.result(code);
    return code;
}
