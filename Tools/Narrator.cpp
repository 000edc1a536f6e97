#include "Narrator.h"

#include "Output.h"

#include <string>
#include <string_view>
#include <vector>

namespace {

std::string first(const std::vector<std::string> &names) {
    return names.empty() ? "none" : names.front();
}

std::string bothWays(const std::vector<std::string> &there, const std::vector<std::string> &back) {
    return there == back ? first(there) : first(there) + " and " + first(back);
}

std::string joined(const std::vector<std::string> &names) {
    std::string text;
    for (const std::string &name : names)
        text += (text.empty() ? "" : ", ") + name;
    return text;
}

void tellServer(const SSHServerFacts &server) {
    if (!server.version.empty())
        tell("server: " + server.version);
    if (!server.agreed)
        return;
    const SSHAlgorithms &agreed = *server.agreed;
    tell("agreed on: key exchange " + first(agreed.keyExchange) + ", host key " +
         first(agreed.hostKey) + ", cipher " +
         bothWays(agreed.cipherToServer, agreed.cipherToClient) + ", MAC " +
         bothWays(agreed.macToServer, agreed.macToClient) + ", compression " +
         bothWays(agreed.compressionToServer, agreed.compressionToClient));
}

std::string_view nameOf(SSHHostKeyStanding standing) {
    switch (standing) {
    case SSHHostKeyStanding::Unknown:
        return "unknown";
    case SSHHostKeyStanding::Changed:
        return "changed";
    case SSHHostKeyStanding::Match:
        return "known";
    case SSHHostKeyStanding::Revoked:
        return "revoked";
    case SSHHostKeyStanding::Unchecked:
    case SSHHostKeyStanding::Failed:
        break;
    }
    return "not compared";
}

void tellHostKey(const SSHHostKeyFacts &key) {
    if (!key.type.empty())
        tell("host key: " + key.type + ' ' + key.fingerprint + ", " +
             std::string(nameOf(key.standing)));
}

// "key ~/.ssh/id_ed25519 (ssh-ed25519 SHA256:...)"
std::string keyText(const SSHAttempt &attempt) {
    if (attempt.key.empty() && attempt.keyType.empty())
        return "";
    std::string text = attempt.isFromAgent ? " with the agent's key " : " with the key ";
    text += attempt.key;
    if (!attempt.keyType.empty())
        text += " (" + attempt.keyType +
                (attempt.keyFingerprint.empty() ? "" : ' ' + attempt.keyFingerprint) + ')';
    return text;
}

} // namespace

void Narrator::didEndStage(SSHSession &session, SSHSessionStage stage,
                           bool /*succeeded*/) noexcept {
    const SSHFacts facts = session.facts();
    if (stage == SSHSessionStage::Handshake)
        tellServer(facts.server);
    if (stage == SSHSessionStage::HostKey)
        tellHostKey(facts.hostKey);
}

void Narrator::didTryMethod(SSHSession & /*session*/, const SSHAttempt &attempt) noexcept {
    tell("log-in: " + attempt.method + keyText(attempt) + ": " +
         SSHAttemptResultName(attempt.result) +
         (attempt.remark.empty() ? "" : ". " + attempt.remark) +
         (attempt.wanted.empty() ? "" : "; the server goes on with " + joined(attempt.wanted)));
}
