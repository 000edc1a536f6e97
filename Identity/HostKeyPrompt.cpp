// Asks the user whether to trust a server whose key is unknown or has changed, and records a
// trusted one. Runs on the main thread.
#include "Identity/HostKeyCheck.h"

#include "Identity/KnownHostsFile.h"
#include "Identity/RecordedKeys.h"
#include "Platform/Assertion.h"
#include "Platform/Text.h"
#include "Session/Connection.h"
#include "Session/KeyType.h"
#include "Session/SSHSession_libssh2.h"

#include <fmt/format.h>

#include <array>
#include <string>
#include <utility>

namespace SSHEngine {

using SSHPlatform::Alert;
using SSHPlatform::AlertAnswer;

namespace {

constexpr const char *thisFunction = "-[SSHSession_libssh2 _confirmHostKey:]";

// A changed key may be an attack: there Return refuses, and only a click accepts.
Alert confirmation(const Connection &connection, const HostKeyCheck &check,
                   const std::string &host) {
    const bool changed = check.checkResult == LIBSSH2_KNOWNHOST_CHECK_MISMATCH;
    const char *const returnKey = "\r";
    const char *const noKey = "";
    Alert alert;
    alert.withdrawal = connection.endDescriptor();
    alert.style = changed ? SSHPlatform::AlertStyle::Critical : SSHPlatform::AlertStyle::Standard;
    alert.messageText = fmt::format("The authenticity of host '{}:{}' can't be established.", host,
                                    connection.engine.port());
    alert.informativeText =
        changed
            ? fmt::format("The server's identity does not match the existing entry in {}. This "
                          "could be because the server's identity has changed or a "
                          "Man-in-the-Middle attack. Do you want to add it to the list and "
                          "connect?\n\nHost key: {}",
                          check.mismatchPath, check.hostFingerprint)
            : fmt::format("The server does not match not in {}. Do you want to add it to the list "
                          "and connect?\n\nHost key: {}",
                          check.knownHostsPath, check.hostFingerprint);
    if (check.key)
        alert.informativeText +=
            fmt::format("\nKey type: {}\nFingerprint: {}", keyTypeForPeople(check.key->type),
                        check.key->fingerprint);
    alert.buttons = {{"Add and Connect", changed ? noKey : returnKey},
                     {"Cancel", changed ? returnKey : noKey}};
    return alert;
}

// The key-type bits of a known-hosts entry for a host key type. The newer types have none, so the
// library refuses to add such an entry, and the user is told each time.
int knownHostKeyBits(std::int32_t hostKeyType) {
    static constexpr std::array<int, 4> bits = {
        0,
        LIBSSH2_KNOWNHOST_KEY_SSHRSA,
        LIBSSH2_KNOWNHOST_KEY_SSHDSS,
        LIBSSH2_KNOWNHOST_KEY_ECDSA_256,
    };
    const auto index = static_cast<std::uint32_t>(hostKeyType);
    return index < bits.size() ? bits.at(index) : 0;
}

void tell(const Connection &connection, std::string messageText, std::string informativeText) {
    Alert alert;
    alert.withdrawal = connection.endDescriptor();
    alert.messageText = std::move(messageText);
    alert.informativeText = std::move(informativeText);
    SSHPlatform::alertPresenter()->runModal(alert);
}

void require(bool condition, const char *text, int line) {
    if (!condition)
        SSHPlatform::assertionFailed(text, thisFunction, engineSourceName, line);
}

// Whether the library takes the entry; the file is read again for it.
int addToKnownHosts(const HostKeyCheck &check, const KnownHost &entry) {
    if (!check.knownHosts)
        return LIBSSH2_ERROR_ALLOC; // the only reason for which the library makes no collection
    return addKnownHost(check.knownHosts, entry);
}

std::string addFailureText(const Connection &connection, const HostKeyCheck &check, int code,
                           int keyBits) {
    std::string text = fmt::format("The connection will still continue.\n\nError {}\n", code);
    if (check.readError != 0)
        text += fmt::format("Earlier read error: {} / {}\nkeyType: {}", check.readError,
                            SSHSession_libssh2::_errorFromFunction(
                                connection.session(), "libssh2_knownhost_addc", check.readError)
                                ->text(),
                            keyBits);
    return text;
}

} // namespace

void confirmHostKey(const Connection &connection, HostKeyCheck &check) {
    const std::optional<std::string> &host = connection.engine.host();
    const std::string hostName = SSHPlatform::textOrNull(host);
    const AlertAnswer answer =
        SSHPlatform::alertPresenter()->runModal(confirmation(connection, check, hostName));
    // Also a presenter refuses, where there is no terminal or nobody types anything.
    check.facts.wasAsked = answer != AlertAnswer::Refused;
    if (answer != AlertAnswer::FirstButton || connection.ending() == Ending::Cancelled)
        return;

    // At once, so that the connection goes on whatever becomes of the record below.
    check.checkResult = LIBSSH2_KNOWNHOST_CHECK_MATCH;
    require(host.has_value(), "self.host.UTF8String", __LINE__);
    require(!host->empty(), "self.host.length > 0", __LINE__);
    require(check.hostPublicKey.data() != nullptr, "hostPublicKey.bytes != nil", __LINE__);
    require(!check.hostPublicKey.empty(), "hostPublicKey.length > 0", __LINE__);

    const auto tellIfFailed = [&](int code) {
        check.facts.recordFailure = code;
        if (code != 0)
            tell(connection, "Updating the known hosts file failed.",
                 fmt::format("An error {} occurred. The connection will still continue.", code));
    };
    if (check.key) {
        tellIfFailed(recordHostKey(connection, check));
        return;
    }
    // The plain host name, whatever the port, so that the key is found again on any port.
    const KnownHost entry = {hostName, check.hostPublicKey, knownHostKeyBits(check.hostKeyType)};
    if (const int code = addToKnownHosts(check, entry)) {
        check.facts.recordFailure = code;
        tell(connection, "Adding the host fingerprint to the known hosts lists failed.",
             addFailureText(connection, check, code, entry.keyBits));
        return;
    }
    tellIfFailed(recordKnownHost(connection.session(), check.knownHostsPath, entry));
}

} // namespace SSHEngine
