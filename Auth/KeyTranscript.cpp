#include "Auth/KeyTranscript.h"

#include "Platform/Text.h"

#include <SSHSession/PrintableText.h>

#include <fmt/format.h>
#include <libssh2.h>

namespace SSHEngine {

std::string identitiesLeftOutText(std::size_t count) {
    if (count == 0)
        return "";
    return fmt::format("The agent holds {} more {} left out because a server hangs up after a "
                       "number of attempts.\n",
                       count, count == 1 ? "identity, which was" : "identities, which were");
}

void KeyTranscript::userKeyIsMissing(const std::string &path) {
    mText += fmt::format("The user-specified key file [[{}]] does not exist.\n", path);
}

void KeyTranscript::standardKeyIsMissing(const std::string &path) {
    mText += fmt::format("The standard key file [[{}]] does not exist.\n", path);
}

void KeyTranscript::trying(const KeyFiles &files, bool withPassphrase) {
    mText += fmt::format("Trying to authenticate with key files [[{}]] and [[{}]] and {}...\n",
                         SSHPlatform::textOrNull(files.publicKey), files.privateKey,
                         withPassphrase ? "password" : "no password");
}

void KeyTranscript::result(int code) {
    switch (code) {
    case 0:
        mText += "Succeeded.\n";
        break;
    case LIBSSH2_ERROR_AUTHENTICATION_FAILED:
        mText += "Failed.\n";
        break;
    case LIBSSH2_ERROR_PUBLICKEY_UNVERIFIED:
        mText += "Failed. Key unverified.\n";
        break;
    default:
        mText += fmt::format("Failed. ({})\n", code);
    }
}

void KeyTranscript::asking() {
    mText += "Asking user for key file password...\n";
}

void KeyTranscript::noPassphrase() {
    mText += "No password was given. Failing.\n";
}

void KeyTranscript::leavingOut(const std::string &path, const std::string &reason) {
    mText += fmt::format("Leaving out key file [[{}]]. {}\n", path, reason);
}

void KeyTranscript::triedAlready(const std::string &path) {
    mText += fmt::format("The identity in key file [[{}]] was tried already.\n", path);
}

void KeyTranscript::wrongPassphrase() {
    mText += "Failed. The password does not open the key file.\n";
}

void KeyTranscript::unreadable(int code) {
    mText += fmt::format(
        "Failed. The key file is damaged, or of a form that cannot be read. ({})\n", code);
}

void KeyTranscript::takenInPart() {
    mText += "Succeeded, as one factor of several.\n";
}

void KeyTranscript::hungUp() {
    mText += "Failed. The connection has ended.\n";
}

void KeyTranscript::noAgent() {
    mText += "There is no SSH agent.\n";
}

void KeyTranscript::agentFailed(int code) {
    mText += fmt::format("The SSH agent did not tell its identities. ({})\n", code);
}

void KeyTranscript::tryingIdentity(const std::string &comment, const std::string &type) {
    constexpr std::size_t longest = 200; // in bytes; a character that is cut becomes "?"
    const std::string shown = SSHPlatform::printableText(comment.substr(0, longest), "");
    mText += fmt::format("Trying to authenticate with the agent's identity [[{}]] ({})...\n", shown,
                         SSHPlatform::printableText(type, ""));
}

void KeyTranscript::agentDidNotSign() {
    mText += "Failed. The agent did not sign.\n";
}

void KeyTranscript::identitiesLeftOut(std::size_t count) {
    mText += identitiesLeftOutText(count);
}

} // namespace SSHEngine
