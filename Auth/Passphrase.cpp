#include "Auth/Passphrase.h"

#include "Session/Connection.h"
#include "Session/Question.h"

#include <SSHSession/SSHSessionPasswordPanel.h>

#include <array>
#include <optional>

namespace SSHEngine {

using SSHPlatform::Secret;

Secret requestPassphrase(const Connection &connection, const std::string &keyName) {
    Secret passphrase = Secret::none();
    askOnMainThread(connection, [&] {
        std::optional<std::string> typed =
            SSHSessionPasswordPanel(connection.endDescriptor()).passwordForSSHKey(keyName);
        passphrase = Secret::takenFrom(typed);
    });
    return passphrase;
}

// The sanitizer would put this elsewhere.
[[gnu::noinline, gnu::no_sanitize_address]] void wipeDeadStack() {
    std::array<char, 16384> dead; // NOLINT(*-member-init): its content is what is to be wiped
    SSHPlatform::wipe(dead.data(), dead.size());
}

} // namespace SSHEngine
