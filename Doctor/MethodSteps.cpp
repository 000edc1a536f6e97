// How the server lets users in, and which of the keys it would take.
#include "Doctor/Steps.h"

#include "Auth/Agent.h"
#include "Auth/KeyFile.h"
#include "Auth/KeyFileReading.h"
#include "Auth/KeyProbe.h"
#include "Auth/MethodList.h"
#include "Doctor/Visit.h"
#include "Session/KeyType.h"
#include "Session/NameList.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <utility>

namespace SSHEngine {

namespace {

// Fewer than the six attempts after which servers hang up by default, one of which is the question
// for the methods.
constexpr std::size_t mostKeys = 5;

using Names = std::vector<std::string>;

bool has(const Names &names, const char *name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

void tellMethods(Examination &examination, const Visit &visit) {
    const Names &methods = examination.facts.methods;
    constexpr std::array usable = {"publickey", "password", "keyboard-interactive"};
    if (std::any_of(usable.begin(), usable.end(),
                    [&](const char *name) { return has(methods, name); })) {
        examination.reached |= Examination::KnowsMethods;
        return examination.ok(fmt::format("The server offers {}.", fmt::join(methods, ", ")));
    }
    SSHFacts found = ended(visit.facts(), SSHErrorCause::NoWayIn, SSHSessionStage::Authenticate);
    found.methods = methods;
    examination.failBy(found);
}

struct Key {
    std::string name; // for people
    std::string blob;
};

void add(std::vector<Key> &keys, const std::string &name, const std::string &blob) {
    if (!blob.empty() &&
        std::none_of(keys.begin(), keys.end(), [&](const Key &each) { return each.blob == blob; }))
        keys.push_back({.name = name, .blob = blob});
}

// From the file itself where it tells, else from its public file.
std::string blobOf(const std::string &path) {
    const KeyFileContent content = readKeyFile(path);
    const std::optional<PrivateKey> key = privateKeyIn(content.bytes.view());
    if (key && key->publicKey)
        return key->publicKey->blob;
    const std::optional<PublicKey> alone = publicKeyInLine(readKeyFile(path + ".pub").bytes.view());
    return alone ? alone->blob : "";
}

void addFile(Examination &examination, std::vector<Key> &keys, const SSHKeyFileFacts &file) {
    if (!file.isTried ||
        (file.state != SSHKeyFileState::Plain && file.state != SSHKeyFileState::Encrypted))
        return;
    const std::string blob = blobOf(file.path);
    if (blob.empty())
        examination.note(file.path + ": Without its public file the server cannot be asked first.");
    add(keys, file.path, blob);
}

void addIdentities(Visit &visit, std::vector<Key> &keys, std::size_t most) {
    visit.call([&](LIBSSH2_SESSION * /*session*/) {
        LIBSSH2_AGENT *const agent = visit.connection->openAgent();
        libssh2_agent_publickey *identity = nullptr;
        std::size_t count = 0;
        if (agent && connectToAgent(*visit.connection, agent) == 0 &&
            libssh2_agent_list_identities(agent) == 0)
            while (libssh2_agent_get_identity(agent, &identity, identity) == 0 &&
                   (most == 0 || count++ < most))
                add(keys, fmt::format("the agent's {}", identity->comment ? identity->comment : ""),
                    {reinterpret_cast<const char *>(identity->blob), identity->blob_len});
        visit.connection->closeAgent();
        return true;
    });
}

// In the session's order.
std::vector<Key> keysOf(Examination &examination, Visit &visit) {
    const bool isClassic = !examination.patient.options.triesKeysOfToday;
    const auto local = examination.facts.local.value_or(SSHLocalFacts());
    std::vector<Key> keys;
    const auto addFiles = [&](bool given) {
        for (const SSHKeyFileFacts &file : local.keyFiles)
            if (file.isGiven == given)
                addFile(examination, keys, file);
    };
    if (!isClassic)
        addFiles(true);
    if (!local.agent.socket.empty() && local.agent.problem.empty())
        addIdentities(visit, keys, examination.patient.options.maximumAgentKeys);
    if (isClassic)
        addFiles(true);
    addFiles(false);
    return keys;
}

enum class Reception { Wanted, Refused, Ended };

Reception offer(Visit &visit, const std::string &user, const Key &key) {
    bool isWanted = false;
    int code = LIBSSH2_ERROR_SOCKET_DISCONNECT;
    visit.call([&](LIBSSH2_SESSION *session) {
        code = probeKey(session, user.c_str(), key.blob, isWanted);
        return true;
    });
    if (isWanted)
        return Reception::Wanted;
    return code == LIBSSH2_ERROR_AUTHENTICATION_FAILED || code == LIBSSH2_ERROR_PUBLICKEY_UNVERIFIED
               ? Reception::Refused
               : Reception::Ended;
}

void offerAll(Examination &examination, Visit &visit, const std::vector<Key> &keys) {
    bool isOneWanted = false;
    for (std::size_t i = 0; i < std::min(keys.size(), mostKeys); ++i) {
        const std::string name = fmt::format("{} ({})", keys[i].name, keyTypeIn(keys[i].blob));
        switch (offer(visit, examination.patient.user, keys[i])) {
        case Reception::Wanted:
            isOneWanted = true;
            examination.ok("The server would take " + name + ".");
            break;
        case Reception::Refused:
            examination.note("The server does not take " + name + ".");
            break;
        case Reception::Ended:
            return examination.note("Asked whether it would take " + name +
                                    ", the server has ended the connection or says nothing.");
        }
    }
    if (keys.size() > mostKeys)
        examination.note(fmt::format("{} more keys were not shown to the server, which hangs up "
                                     "after a number of them.",
                                     keys.size() - mostKeys));
    if (!isOneWanted)
        examination.note("A key without a line in authorized_keys, wrong permissions there, a user "
                         "who is unknown or may not log in and a type that is not allowed look "
                         "alike from here; the server's log tells them apart.");
}

} // namespace

void examineMethods(Examination &examination) {
    examination.visit = std::make_shared<Visit>(examination, usualVisit);
    Visit &visit = *examination.visit;
    MethodList list;
    bool isIn = false;
    if (!visit.shakeHands())
        return examination.failBy(visit.facts());
    if (!visit.run(SSHSessionStage::HostKey, &SSHSession_libssh2::_validatedHostFingerprint))
        examination.reached &= ~unsigned{Examination::IsTrusted}; // another server of that name
    visit.call([&](LIBSSH2_SESSION *session) {
        list = fetchMethodList(session, examination.patient.user.c_str());
        isIn = libssh2_userauth_authenticated(session) != 0;
        return true;
    });
    visit.engine->_tellNews(*visit.connection);
    if (const std::string banner = visit.facts().banner; !banner.empty())
        examination.note("Before the log-in the server shows " + inQuotes(banner) + ".");
    if (isIn) {
        examination.reached |= Examination::KnowsMethods;
        return examination.note("The server lets this user in without asking for anything.");
    }
    if (list.names) {
        examination.facts.methods = namesIn(*list.names);
        return tellMethods(examination, visit);
    }
    examination.failBy(
        ended(visit.facts(),
              visit.isTooLate() ? SSHErrorCause::LogInTimedOut : SSHErrorCause::MethodsUntold,
              SSHSessionStage::Authenticate));
}

void examineKeys(Examination &examination) {
    const std::shared_ptr<Visit> visit = std::exchange(examination.visit, nullptr);
    if (!has(examination.facts.methods, "publickey"))
        return examination.note("The server takes no keys.");
    const std::vector<Key> keys = keysOf(examination, *visit);
    if (keys.empty())
        return examination.note("There is none to show to the server.");
    offerAll(examination, *visit, keys);
}

} // namespace SSHEngine
