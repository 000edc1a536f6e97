#include "Auth/KeyFacts.h"

#include "Auth/KeyFile.h"
#include "Auth/KeyFileReading.h"
#include "Platform/Path.h"
#include "Session/KeyEncoding.h"
#include "Session/LibraryAlgorithms.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

namespace SSHEngine {

namespace {

using State = SSHKeyFileState;

constexpr std::string_view puttyBegin = "PuTTY-User-Key-File-";
constexpr std::array standardNames = {"id_rsa", "id_ecdsa", "id_ed25519", "id_dsa"};

bool isPrivateKey(State state) {
    return state == State::Plain || state == State::Encrypted || state == State::Exposed;
}

State stateOf(const KeyFileContent &content, const std::optional<PrivateKey> &key,
              bool isReadableCipher) {
    const std::string_view bytes = content.bytes.view();
    if (bytes.starts_with(puttyBegin))
        return State::PuTTY;
    if (!key)
        return publicKeyInLine(bytes) ? State::PublicKey : State::NoKey;
    if (key->publicKey && isOnToken(*key->publicKey))
        return State::OnToken;
    if (!isReadableCipher)
        return State::UnknownCipher;
    if (!content.exposure.empty())
        return State::Exposed;
    return key->isEncrypted ? State::Encrypted : State::Plain;
}

void describe(SSHKeyFileFacts &facts, const PublicKey &key) {
    facts.type = key.type;
    facts.fingerprint = keyFingerprint(key.blob);
}

// A private file that does not tell its public key in the clear cannot be compared.
void lookAtPublicFile(SSHKeyFileFacts &facts, const std::optional<PublicKey> &own) {
    const std::string path = facts.path + ".pub";
    if (!SSHPlatform::fileExists(path)) {
        facts.publicFile = SSHPublicFileState::Missing;
        return;
    }
    const KeyFileContent content = readKeyFile(path);
    const std::optional<PublicKey> key = publicKeyInLine(content.bytes.view());
    if (!key)
        facts.publicFile = SSHPublicFileState::Unreadable;
    else if (own)
        facts.publicFile =
            own->blob == key->blob ? SSHPublicFileState::Same : SSHPublicFileState::Foreign;
    if (key && !own)
        describe(facts, *key);
}

void examine(SSHKeyFileFacts &facts, LIBSSH2_SESSION *library) {
    const KeyFileContent content = readKeyFile(facts.path);
    facts.mode = content.mode;
    if (!content.bytes) {
        facts.state = State::Unreadable;
        facts.detail = content.reason;
        return;
    }
    const std::optional<PrivateKey> key = privateKeyIn(content.bytes.view());
    facts.state = stateOf(content, key, !key || canReadKeysOf(library, key->cipher));
    if (facts.state == State::UnknownCipher)
        facts.detail = key->cipher;
    const std::optional<PublicKey> own =
        key ? key->publicKey : publicKeyInLine(content.bytes.view());
    if (own)
        describe(facts, *own);
    if (key)
        lookAtPublicFile(facts, own);
}

SSHKeyFileFacts factsOf(const std::string &path, LIBSSH2_SESSION *library) {
    SSHKeyFileFacts facts;
    facts.path = path;
    if (SSHPlatform::fileExists(path))
        examine(facts, library);
    return facts;
}

// By default only complete pairs are.
bool isTried(const std::string &name, const std::string &path, const SSHSessionOptions &options) {
    if (options.triesKeysOfToday)
        return name != "id_dsa";
    return (name == "id_dsa" || name == "id_rsa") && SSHPlatform::fileExists(path + ".pub");
}

bool isStandard(const std::string &name) {
    return std::find(standardNames.begin(), standardNames.end(), name) != standardNames.end();
}

// Private keys under names of the user's own, which no session finds by itself.
std::vector<SSHKeyFileFacts> otherKeys(const std::string &directory, LIBSSH2_SESSION *library) {
    constexpr int most = 100; // entries
    std::vector<SSHKeyFileFacts> keys;
    std::error_code failure;
    std::filesystem::directory_iterator entry(directory, failure);
    for (int i = 0; !failure && entry != std::filesystem::directory_iterator() && i < most; ++i) {
        if (!isStandard(entry->path().filename())) {
            SSHKeyFileFacts facts = factsOf(entry->path(), library);
            if (isPrivateKey(facts.state))
                keys.push_back(std::move(facts));
        }
        entry.increment(failure);
    }
    return keys;
}

bool isAmong(const std::vector<std::string> &files, const std::string &path) {
    return std::any_of(files.begin(), files.end(), [&](const std::string &each) {
        return SSHPlatform::standardizedPath(each) == SSHPlatform::standardizedPath(path);
    });
}

} // namespace

std::vector<std::string> givenKeyFiles(const std::optional<std::string> &first,
                                       const SSHSessionOptions &options) {
    std::vector<std::string> all;
    if (first)
        all.push_back(*first);
    if (options.triesKeysOfToday)
        all.insert(all.end(), options.furtherKeyFiles.begin(), options.furtherKeyFiles.end());
    return all;
}

std::vector<SSHKeyFileFacts> keyFileFacts(const std::vector<std::string> &given,
                                          const SSHSessionOptions &options,
                                          LIBSSH2_SESSION *library) {
    std::vector<SSHKeyFileFacts> all;
    for (const std::string &path : given) {
        all.push_back(factsOf(path, library));
        all.back().isGiven = all.back().isTried = true;
    }
    const std::string directory = SSHPlatform::expandingTilde("~/.ssh");
    for (const char *name : standardNames) {
        const std::string path = SSHPlatform::appendingPathComponent(directory, name);
        if (isAmong(given, path))
            continue;
        all.push_back(factsOf(path, library));
        all.back().isTried = isTried(name, path, options);
    }
    for (SSHKeyFileFacts &key : otherKeys(directory, library))
        if (!isAmong(given, key.path))
            all.push_back(std::move(key));
    return all;
}

} // namespace SSHEngine
