#include "Auth/Identities.h"

#include "Auth/Agent.h"
#include "Auth/Attempts.h"
#include "Auth/KeyFacts.h"
#include "Auth/KeyFile.h"
#include "Auth/KeyFileReading.h"
#include "Auth/KeyProbe.h"
#include "Auth/KeyTranscript.h"
#include "Auth/MethodList.h"
#include "Auth/Passphrase.h"
#include "Platform/Path.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"
#include "Session/KeyType.h"
#include "Session/LibraryAlgorithms.h"
#include "Session/SSHSession_libssh2.h"

#include <SSHSession/PrintableText.h>
#include <SSHSession/Secret.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace SSHEngine {

namespace {

using SSHPlatform::Secret;

constexpr int mostPassphrases = 3; // for one file

enum class Outcome {
    Accepted,
    Refused,    // the server does not know the key
    Signed,     // it knows the key, and was not content with the signature
    CannotSign, // it knows the key, which could not be used
    CannotRead, // nothing was sent
    Ended,      // the connection
};

} // namespace

struct EarlyTrial {
    std::string path; // of the key
    Outcome outcome = Outcome::Ended;
    int code = 0;
};

namespace {

struct AgentIdentity {
    libssh2_agent_publickey *handle = nullptr; // the agent's handle owns it
    std::string blob;
    std::string comment;
    SSHAttempt attempt;
};

// A private key, ready to be tried.
struct KeyFile {
    std::string path;
    Secret content = Secret::none();
    PrivateKey description;
    std::optional<std::string> publicPath =
        std::nullopt; // of the file that names the public key, if one does
    std::optional<PublicKey> publicKey = std::nullopt;
    Secret passphrase = Secret::none();
    bool isGivenUp = false; // by the user
};

// What the server is told of a key: its public part, or a certificate of it.
struct Offer {
    std::optional<std::string> path; // of the certificate or of the public key
    std::optional<PublicKey> publicKey = std::nullopt;
    Secret certificate = Secret::none();
};

std::string certificatePath(const std::string &path) {
    return path + "-cert.pub";
}

// The library has one code for all that goes wrong once the server has said that it knows the key,
// and for a connection that ends meanwhile; only its message, in 1.10 as in 1.11, tells more.
Outcome unverifiedOutcome(LIBSSH2_SESSION *session) {
    char *text = nullptr;
    libssh2_session_last_error(session, &text, nullptr, 0);
    const std::string_view message = text ? text : "";
    if (message.starts_with("Waiting for"))
        return Outcome::Ended;
    return message == "Callback returned error" ? Outcome::CannotSign : Outcome::Signed;
}

SSHAttemptResult resultOf(Outcome outcome) {
    using enum SSHAttemptResult;
    switch (outcome) {
    case Outcome::Accepted:
        return Accepted;
    case Outcome::Refused:
        return Refused;
    case Outcome::Signed:
        return SignatureRefused;
    case Outcome::CannotSign:
        return NotSigned;
    case Outcome::CannotRead:
        return Unusable;
    case Outcome::Ended:
        break;
    }
    return Ended;
}

Outcome outcomeOfCode(LIBSSH2_SESSION *session, int code) {
    switch (code) {
    case 0:
        return Outcome::Accepted;
    case LIBSSH2_ERROR_AUTHENTICATION_FAILED:
        return Outcome::Refused;
    case LIBSSH2_ERROR_PUBLICKEY_UNVERIFIED:
        return unverifiedOutcome(session);
    case LIBSSH2_ERROR_SOCKET_SEND:
    case LIBSSH2_ERROR_SOCKET_RECV:
    case LIBSSH2_ERROR_SOCKET_DISCONNECT:
        return Outcome::Ended;
    default:
        return Outcome::CannotRead;
    }
}

// The turns of the identities, one after another, on one connection.
class Identities {
  public:
    explicit Identities(Connection &connection)
        : mEngine(connection.engine), mConnection(connection),
          mUser(requiredUser(mEngine, "-[SSHSession_libssh2 _authenticateWithPublicKey:]")) {}

    bool tryAll();
    bool tryEarly(const std::string &path);
    const KeyTranscript &transcript() const { return mTranscript; }

  private:
    void findAgent();
    int listIdentities(LIBSSH2_AGENT *agent);
    void tryGivenKey(const std::string &path);
    void leaveOutMissing(const std::string &path);
    void tryStandardKey(const std::string &name);
    void tryAgent();
    void tryIdentity(const AgentIdentity &identity);
    const AgentIdentity *identityOf(const PublicKey &key) const;

    void tryFile(const std::string &path);
    std::optional<KeyFile> openedFile(const std::string &path);
    void note(const std::string &path, const std::optional<PublicKey> &key, SSHAttemptResult result,
              const std::string &remark = "") const;
    std::optional<Offer> certificateOf(const KeyFile &file);
    void noteTrial(const KeyFile &file, const Offer &offer, Outcome outcome) const;
    void tryOffer(KeyFile &file, const Offer &offer);
    bool isWanted(const KeyFile &file, const Offer &offer);
    void askForPassphrase(KeyFile &file);

    Outcome probe(const PublicKey &key);
    Outcome sign(const KeyFile &file, const Offer &offer);
    Outcome signNow(const KeyFile &file, const Offer &offer);
    Outcome outcomeOf(const std::function<int(LIBSSH2_SESSION *)> &trial);
    void conclude(Outcome outcome);
    void lookForMore();

    SSHSession_libssh2 &mEngine;
    Connection &mConnection;
    const char *const mUser;
    KeyTranscript mTranscript;
    std::vector<AgentIdentity> mIdentities;
    std::set<std::string> mTried; // blobs and paths
    std::size_t mTriedOfAgent = 0;
    int mCode = 0; // of the last trial
    bool mIsAccepted = false;
    bool mIsOver = false;
};

bool Identities::tryAll() {
    findAgent();
    for (const std::string &path : givenKeyFiles(mEngine.keyFilePath(), mEngine.options()))
        tryGivenKey(path);
    tryAgent();
    for (const char *name : {"id_ed25519", "id_ecdsa", "id_rsa"})
        tryStandardKey(name);
    mEngine.onSessionQueue(mConnection, nullptr, [&](LIBSSH2_SESSION * /*session*/) {
        mConnection.closeAgent();
        return true;
    });
    return mIsAccepted;
}

// What the server shows meanwhile is told before the attempt, as it is where it comes with the
// methods.
bool Identities::tryEarly(const std::string &path) {
    const KeyFileContent content = readKeyFile(path);
    const std::optional<PrivateKey> description = privateKeyIn(content.bytes.view());
    if (!description || description->isEncrypted || !content.exposure.empty() ||
        !description->publicKey || isOnToken(*description->publicKey) ||
        SSHPlatform::fileExists(certificatePath(path)))
        return false;
    const KeyFile file = {.path = path, .content = content.bytes, .description = *description};
    const Offer offer = {.path = std::nullopt, .publicKey = description->publicKey};
    const Outcome outcome = signNow(file, offer);
    if (outcome == Outcome::Accepted) {
        mEngine._tellNews(mConnection);
        noteTrial(file, offer, outcome);
    } else if (outcome != Outcome::CannotRead) {
        mConnection.logIn.earlyTrial =
            std::make_shared<EarlyTrial>(EarlyTrial{path, outcome, mCode});
    }
    return outcome == Outcome::Accepted;
}

void Identities::findAgent() {
    if (!std::getenv("SSH_AUTH_SOCK")) {
        mTranscript.noAgent();
        return;
    }
    mEngine.onSessionQueue(mConnection, nullptr, [&](LIBSSH2_SESSION *session) {
        LIBSSH2_AGENT *const agent = mConnection.openAgent();
        const int code = agent ? listIdentities(agent) : libssh2_session_last_errno(session);
        if (code != 0) {
            mTranscript.agentFailed(code);
            noteAgentFailure(mConnection, "the agent's list", code);
        }
        return code == 0;
    });
}

int Identities::listIdentities(LIBSSH2_AGENT *agent) {
    int code = connectToAgent(mConnection, agent);
    if (code == 0)
        code = libssh2_agent_list_identities(agent);
    libssh2_agent_publickey *identity = nullptr;
    while (code == 0) {
        libssh2_agent_publickey *const previous = identity;
        code = libssh2_agent_get_identity(agent, &identity, previous);
        if (code == 0)
            mIdentities.push_back(
                {.handle = identity,
                 .blob = {reinterpret_cast<const char *>(identity->blob), identity->blob_len},
                 .comment = identity->comment ? identity->comment : "",
                 .attempt = attemptWith(*identity)});
    }
    return code == noMoreIdentities ? 0 : code;
}

// --- Key files

void Identities::tryGivenKey(const std::string &path) {
    if (mIsOver || mTried.contains(SSHPlatform::standardizedPath(path)))
        return;
    if (!SSHPlatform::fileExists(path))
        leaveOutMissing(path);
    else
        tryFile(path);
    // Named after the file by ssh-add(1): what cannot be told from the file goes by this.
    std::stable_partition(mIdentities.begin(), mIdentities.end(),
                          [&](const AgentIdentity &each) { return each.comment == path; });
}

void Identities::leaveOutMissing(const std::string &path) {
    mTranscript.userKeyIsMissing(path);
    note(path, std::nullopt, SSHAttemptResult::Missing);
}

void Identities::note(const std::string &path, const std::optional<PublicKey> &key,
                      SSHAttemptResult result, const std::string &remark) const {
    SSHAttempt attempt = attemptWithKey(path, key ? key->blob : "");
    attempt.result = result;
    attempt.remark = remark;
    noteAttempt(mConnection, std::move(attempt));
}

void Identities::tryStandardKey(const std::string &name) {
    const std::string path =
        SSHPlatform::appendingPathComponent(SSHPlatform::expandingTilde("~/.ssh"), name);
    if (mIsOver || mTried.contains(SSHPlatform::standardizedPath(path)))
        return;
    if (SSHPlatform::fileExists(path))
        tryFile(path);
    else
        mTranscript.standardKeyIsMissing(path);
}

// An identity that the agent holds needs no pass phrase.
void Identities::tryFile(const std::string &path) {
    mTried.insert(SSHPlatform::standardizedPath(path));
    std::optional<KeyFile> file = openedFile(path);
    if (!file)
        return;
    if (file->publicKey && mTried.contains(file->publicKey->blob)) {
        mTranscript.triedAlready(path);
        return;
    }
    const AgentIdentity *const held =
        file->publicKey && file->description.isEncrypted ? identityOf(*file->publicKey) : nullptr;
    if (held) {
        tryIdentity(*held);
        return;
    }
    if (const std::optional<Offer> certificate = certificateOf(*file))
        tryOffer(*file, *certificate);
    if (file->publicKey)
        mTried.insert(file->publicKey->blob);
    tryOffer(*file, {.path = file->publicPath, .publicKey = file->publicKey});
}

// None, and a line of the transcript that says why, for what is no key that can be used.
std::optional<KeyFile> Identities::openedFile(const std::string &path) {
    const KeyFileContent content = readKeyFile(path);
    const auto leaveOut = [&](const std::string &reason) {
        mTranscript.leavingOut(path, reason);
        note(path, std::nullopt, SSHAttemptResult::Unusable, reason);
        return std::nullopt;
    };
    if (!content.bytes)
        return leaveOut(content.reason);
    const std::optional<PrivateKey> description = privateKeyIn(content.bytes.view());
    if (!description)
        return leaveOut(publicKeyInLine(content.bytes.view())
                            ? "It is a public key; the private one is needed."
                            : "It holds no private key, or one of a form that is not known.");
    if (!content.exposure.empty())
        return leaveOut(content.exposure);
    KeyFile file = {.path = path, .content = content.bytes, .description = *description};
    const std::string publicPath = path + ".pub";
    if (const KeyFileContent publicPart = readKeyFile(publicPath); publicPart.bytes) {
        file.publicPath = publicPath;
        file.publicKey = publicKeyInLine(publicPart.bytes.view());
    }
    if (description->publicKey)
        file.publicKey = description->publicKey;
    if (file.publicKey && isOnToken(*file.publicKey))
        return leaveOut("A hardware token holds this key, which only an agent can use.");
    if (!canReadKeysOf(mConnection.session(), description->cipher))
        return leaveOut("It is encrypted with " +
                        SSHPlatform::printableText(description->cipher, "") +
                        ", which cannot be read.");
    return file;
}

std::optional<Offer> Identities::certificateOf(const KeyFile &file) {
    const std::string path = certificatePath(file.path);
    if (!SSHPlatform::fileExists(path))
        return std::nullopt;
    const KeyFileContent content = readKeyFile(path);
    const std::optional<PublicKey> certificate = publicKeyInLine(content.bytes.view());
    if (!certificate) {
        mTranscript.leavingOut(path, "It holds no certificate.");
        return std::nullopt;
    }
    const std::vector<std::string> known =
        libraryAlgorithms(mConnection.session(), LIBSSH2_METHOD_HOSTKEY);
    if (std::find(known.begin(), known.end(), certificate->type) == known.end()) {
        mTranscript.leavingOut(path, "Certificates of the type " +
                                         SSHPlatform::printableText(certificate->type, "") +
                                         " cannot be used.");
        return std::nullopt;
    }
    return Offer{.path = path, .publicKey = certificate, .certificate = content.bytes};
}

// The pass phrase is asked for only when the server would take the key, as far as that can be known
// without it.
void Identities::tryOffer(KeyFile &file, const Offer &offer) {
    if (mIsOver || file.isGivenUp || !isWanted(file, offer))
        return;
    const KeyFiles names = {.publicKey = offer.path, .privateKey = file.path};
    const bool isEncrypted = file.description.isEncrypted;
    for (int i = 0; i < mostPassphrases; ++i) {
        if (isEncrypted && !file.passphrase)
            askForPassphrase(file);
        if (file.isGivenUp)
            return;
        mTranscript.trying(names, isEncrypted);
        const Outcome outcome = sign(file, offer);
        if (!isEncrypted || (outcome != Outcome::CannotRead && outcome != Outcome::CannotSign)) {
            noteTrial(file, offer, outcome);
            conclude(outcome);
            return;
        }
        mTranscript.wrongPassphrase();
        file.passphrase = Secret::none();
    }
    file.isGivenUp = true;
    note(file.path, file.publicKey, SSHAttemptResult::WrongPassphrase);
}

bool Identities::isWanted(const KeyFile &file, const Offer &offer) {
    if (!file.description.isEncrypted || file.passphrase || !offer.publicKey)
        return true;
    const Outcome outcome = probe(*offer.publicKey);
    if (outcome == Outcome::CannotSign)
        return true;
    mTranscript.trying({.publicKey = offer.path, .privateKey = file.path}, false);
    noteTrial(file, offer, outcome);
    conclude(outcome);
    return false;
}

void Identities::noteTrial(const KeyFile &file, const Offer &offer, Outcome outcome) const {
    note(offer.certificate ? *offer.path : file.path,
         offer.publicKey ? offer.publicKey : file.publicKey, resultOf(outcome),
         outcome == Outcome::CannotRead ? "It is damaged, or of a form that cannot be read." : "");
}

void Identities::askForPassphrase(KeyFile &file) {
    mTranscript.asking();
    if (mEngine.holds(mConnection))
        file.passphrase = requestPassphrase(
            mConnection,
            SSHPlatform::deletingPathExtension(SSHPlatform::lastPathComponent(file.path)));
    if (file.passphrase)
        return;
    mTranscript.noPassphrase();
    file.isGivenUp = true;
    note(file.path, file.publicKey, SSHAttemptResult::NotGiven);
}

// --- The agent

const AgentIdentity *Identities::identityOf(const PublicKey &key) const {
    const auto found = std::find_if(mIdentities.begin(), mIdentities.end(),
                                    [&](const auto &each) { return each.blob == key.blob; });
    return found == mIdentities.end() ? nullptr : &*found;
}

void Identities::tryAgent() {
    const std::size_t most = mEngine.options().maximumAgentKeys;
    std::size_t leftOut = 0;
    for (const AgentIdentity &identity : mIdentities) {
        if (mIsOver)
            return;
        if (mTried.contains(identity.blob))
            continue;
        if (most == 0 || mTriedOfAgent < most)
            tryIdentity(identity);
        else
            ++leftOut;
    }
    if (!mIsOver)
        mTranscript.identitiesLeftOut(leftOut);
}

void Identities::tryIdentity(const AgentIdentity &identity) {
    ++mTriedOfAgent;
    mTried.insert(identity.blob);
    mTranscript.tryingIdentity(identity.comment, keyTypeIn(identity.blob));
    const Outcome outcome = outcomeOf([&](LIBSSH2_SESSION * /*session*/) {
        return libssh2_agent_userauth(mConnection.agent(), mUser, identity.handle);
    });
    SSHAttempt attempt = identity.attempt;
    attempt.result = resultOf(outcome);
    if (outcome == Outcome::CannotRead)
        attempt.remark = SSHSession_libssh2::_stringForErrorCode(mCode);
    noteAttempt(mConnection, std::move(attempt));
    if (outcome == Outcome::CannotSign)
        mTranscript.agentDidNotSign();
    else
        conclude(outcome);
}

// --- Trials

// Costs no attempt of those that the server counts, unless it does not want the key.
Outcome Identities::probe(const PublicKey &key) {
    bool isWanted = false;
    const Outcome outcome = outcomeOf(
        [&](LIBSSH2_SESSION *session) { return probeKey(session, mUser, key.blob, isWanted); });
    return isWanted ? Outcome::CannotSign : outcome;
}

Outcome Identities::sign(const KeyFile &file, const Offer &offer) {
    const auto early = std::exchange(mConnection.logIn.earlyTrial, nullptr);
    if (!early || early->path != file.path || offer.certificate)
        return signNow(file, offer);
    mCode = early->code;
    return early->outcome;
}

// With the public key that the library derives, rather than with a file's, a key that cannot be
// read shows before anything is sent.
Outcome Identities::signNow(const KeyFile &file, const Offer &offer) {
    return outcomeOf([&](LIBSSH2_SESSION *session) {
        const std::string_view certificate = offer.certificate.view();
        const std::string_view key = file.content.view();
        const int code = libssh2_userauth_publickey_frommemory(
            session, mUser, std::strlen(mUser), certificate.data(), certificate.size(), key.data(),
            key.size(), file.passphrase.view().data());
        wipeDeadStack();
        return code;
    });
}

Outcome Identities::outcomeOf(const std::function<int(LIBSSH2_SESSION *)> &trial) {
    Outcome outcome = Outcome::Ended; // when the connection has been torn down
    mEngine.onSessionQueue(mConnection, nullptr, [&](LIBSSH2_SESSION *session) {
        mCode = trial(session);
        outcome = outcomeOfCode(session, mCode);
        return true;
    });
    return mEngine.holds(mConnection) ? outcome : Outcome::Ended;
}

void Identities::conclude(Outcome outcome) {
    switch (outcome) {
    case Outcome::Accepted:
        mIsAccepted = mIsOver = true;
        break;
    case Outcome::Signed:
        lookForMore();
        if (mIsOver && !mIsAccepted) {
            mTranscript.takenInPart();
            return;
        }
        break;
    case Outcome::CannotRead:
        mTranscript.unreadable(mCode);
        return;
    case Outcome::Ended:
        mIsOver = mConnection.logIn.hasEnded = true;
        mTranscript.hungUp();
        return;
    case Outcome::Refused:
    case Outcome::CannotSign:
        break;
    }
    mTranscript.result(mIsAccepted ? 0 : mCode);
}

// A signature that was not enough is most often one factor of several. When the server still wants
// keys, another one may be the next factor.
void Identities::lookForMore() {
    if (!mEngine.options().triesFurtherFactors)
        return;
    mEngine.onSessionQueue(mConnection, nullptr, [&](LIBSSH2_SESSION *session) {
        mConnection.logIn.renewedMethods = fetchMethodList(session, mUser).names;
        if (mConnection.logIn.renewedMethods)
            noteMethods(mConnection, *mConnection.logIn.renewedMethods);
        mIsAccepted = libssh2_userauth_authenticated(session) != 0;
        return true;
    });
    const std::optional<std::string> &methods = mConnection.logIn.renewedMethods;
    mIsOver = mIsAccepted || !methods || methods->find("publickey") == std::string::npos;
}

} // namespace

bool isLetInByGivenKey(Connection &connection) {
    const SSHSession_libssh2 &engine = connection.engine;
    const SSHSessionOptions &options = engine.options();
    return options.triesKeysOfToday && options.watchesConnection && engine.user() &&
           engine.keyFilePath() && !engine.password() && !engine.asksNobody &&
           !std::getenv("SSH_AUTH_SOCK") && Identities(connection).tryEarly(*engine.keyFilePath());
}

bool hasOfferedKeys(const Connection &connection, const MethodList &list) {
    const auto &early = connection.logIn.earlyTrial;
    if (!early || !list.names)
        return early && libssh2_userauth_authenticated(connection.session()) == 0;
    return early->outcome == Outcome::Signed && list.names->find("publickey") == std::string::npos;
}

bool authenticateWithIdentities(Connection &connection, SSHErrorRef *error) {
    Identities identities(connection);
    return identities.tryAll() || fail(error, [&] {
               return connectionError(connection.engine, identities.transcript().text(), 0,
                                      logInCause(connection));
           });
}

} // namespace SSHEngine
