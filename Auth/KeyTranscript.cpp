#include "Auth/KeyTranscript.h"

#include "Platform/Text.h"

#include <fmt/format.h>
#include <libssh2.h>

namespace SSHEngine {

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

} // namespace SSHEngine
