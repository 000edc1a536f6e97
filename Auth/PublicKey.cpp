// Authentication with key files: the session's own, then the standard pairs in ~/.ssh. Every step
// is written to a transcript, which becomes the failure reason when no key succeeds.
#include "Session/SSHSession_libssh2.h"

#include "Auth/Attempts.h"
#include "Auth/Identities.h"
#include "Auth/KeyFile.h"
#include "Auth/KeyFileReading.h"
#include "Auth/KeyTranscript.h"
#include "Auth/Passphrase.h"
#include "Platform/Path.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"

#include <SSHSession/Secret.h>

#include <cstring>

using SSHEngine::Connection;
using SSHEngine::KeyFiles;
using SSHEngine::KeyTranscript;
using SSHPlatform::Secret;

namespace {

std::optional<std::string> standardized(const std::optional<std::string> &path) {
    return path ? std::optional(SSHPlatform::standardizedPath(*path)) : std::nullopt;
}

const char *textOrNull(const std::optional<std::string> &text) {
    return text ? text->c_str() : nullptr;
}

// Why the library could not use the file, which it does not tell.
void explainUnusable(SSHAttempt &attempt) {
    const SSHEngine::KeyFileContent content = SSHEngine::readKeyFile(attempt.key);
    const auto key = SSHEngine::privateKeyIn(content.bytes.view());
    if (!content.bytes)
        attempt.remark = content.reason;
    else if (!key)
        attempt.remark = "It holds no private key, or one of a form that is not known.";
    else if (key->isEncrypted)
        attempt.result = SSHAttemptResult::NotGiven;
}

std::string publicPartOf(const std::string &path) {
    const auto key = SSHEngine::privateKeyIn(SSHEngine::readKeyFile(path).bytes.view());
    return key && key->publicKey ? key->publicKey->blob : "";
}

// The turns of the keys, one after another, on one connection.
class KeyTrials {
  public:
    KeyTrials(SSHSession_libssh2 &engine, Connection &connection)
        : mEngine(engine), mConnection(connection) {}

    bool tryUserSpecifiedKey();
    bool tryStandardKey(const std::string &name);

    const KeyTranscript &transcript() const { return mTranscript; }

  private:
    bool tryKeyWithPrompt(const KeyFiles &files);
    int tryKey(const KeyFiles &files, const Secret &passphrase);
    void note(const std::string &path);

    SSHSession_libssh2 &mEngine;
    Connection &mConnection;
    KeyTranscript mTranscript;
    SSHAttempt mTrial; // the last one
};

// Tried without a public key file, even if one lies beside it: the library derives the public key.
bool KeyTrials::tryUserSpecifiedKey() {
    const std::optional<std::string> &path = mEngine.keyFilePath();
    if (!path)
        return false;
    if (SSHPlatform::fileExists(*path))
        return tryKeyWithPrompt({.publicKey = std::nullopt, .privateKey = *path});
    mTranscript.userKeyIsMissing(*path);
    mTrial.result = SSHAttemptResult::Missing;
    note(*path);
    return false;
}

// Tried only as a complete pair.
bool KeyTrials::tryStandardKey(const std::string &name) {
    const std::string directory = SSHPlatform::expandingTilde("~/.ssh");
    const std::string privateKey = SSHPlatform::appendingPathComponent(directory, name);
    const std::string publicKey = privateKey + ".pub";
    for (const std::string &path : {publicKey, privateKey}) {
        if (!SSHPlatform::fileExists(path)) {
            mTranscript.standardKeyIsMissing(path);
            return false;
        }
    }
    return tryKeyWithPrompt({.publicKey = publicKey, .privateKey = privateKey});
}

// Only "the server would take the key, but the key cannot sign" asks for a pass phrase, and only
// once. The library says the same of a connection that was shut down under the trial: then there is
// nothing to ask for. No library object of this stage lives while the question shows; the
// connection itself stays, shut down or not.
bool KeyTrials::tryKeyWithPrompt(const KeyFiles &files) {
    const int code = tryKey(files, Secret::none());
    if (code != LIBSSH2_ERROR_PUBLICKEY_UNVERIFIED || !mEngine.holds(mConnection)) {
        note(files.privateKey);
        return code == 0;
    }
    const SSHAttemptResult first = mTrial.result;
    mTranscript.asking();
    const Secret passphrase = SSHEngine::requestPassphrase(
        mConnection,
        SSHPlatform::deletingPathExtension(SSHPlatform::lastPathComponent(files.privateKey)));
    if (!passphrase) {
        mTranscript.noPassphrase();
        if (first == SSHAttemptResult::NotSigned)
            mTrial.result = SSHAttemptResult::NotGiven;
        note(files.privateKey);
        return false;
    }
    const KeyFiles exact = {.publicKey = standardized(files.publicKey),
                            .privateKey = SSHPlatform::standardizedPath(files.privateKey)};
    const bool isIn = tryKey(exact, passphrase) == 0;
    if (mTrial.result == SSHAttemptResult::NotSigned)
        mTrial.result = SSHAttemptResult::WrongPassphrase;
    note(files.privateKey);
    return isIn;
}

int KeyTrials::tryKey(const KeyFiles &files, const Secret &passphrase) {
    const char *const user =
        SSHEngine::requiredUser(mEngine, "-[SSHSession_libssh2 _authenticateWithPublicKey:]");
    mTranscript.trying(files, static_cast<bool>(passphrase));
    mTrial = SSHAttempt();
    mTrial.result = SSHAttemptResult::Ended;
    int code = LIBSSH2_ERROR_SOCKET_DISCONNECT; // when the connection has been torn down
    mEngine.onSessionQueue(mConnection, nullptr, [&](LIBSSH2_SESSION *session) {
        code = libssh2_userauth_publickey_fromfile_ex(
            session, user, static_cast<unsigned>(std::strlen(user)), textOrNull(files.publicKey),
            files.privateKey.c_str(), textOrNull(passphrase.text()));
        SSHEngine::wipeDeadStack();
        SSHEngine::setResult(mTrial, session, code);
        return code == 0;
    });
    mTranscript.result(code);
    if (code == LIBSSH2_ERROR_PUBLICKEY_UNVERIFIED)
        mConnection.logIn.mayHaveFactor = true;
    return code;
}

void KeyTrials::note(const std::string &path) {
    SSHAttempt attempt = SSHEngine::attemptWithKey(path, publicPartOf(path));
    attempt.result = mTrial.result;
    attempt.remark = mTrial.remark;
    if (attempt.result == SSHAttemptResult::Unusable)
        explainUnusable(attempt);
    SSHEngine::noteAttempt(mConnection, std::move(attempt));
}

} // namespace

bool SSHSession_libssh2::_authenticateWithPublicKey(Connection &connection, SSHErrorRef *error) {
    if (options().triesKeysOfToday)
        return SSHEngine::authenticateWithIdentities(connection, error);
    KeyTrials trials(*this, connection);
    if (trials.tryUserSpecifiedKey())
        return true;
    for (const char *name : {"id_dsa", "id_rsa"}) // in this order
        if (trials.tryStandardKey(name))
            return true;
    return SSHEngine::fail(error, [&] {
        return SSHEngine::connectionError(*this, trials.transcript().text(), 0,
                                          SSHEngine::logInCause(connection));
    });
}
