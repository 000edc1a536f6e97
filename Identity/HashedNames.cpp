#include "Identity/HashedNames.h"

#include <SSHSession/Base64.h>

#include <memory>

namespace SSHEngine {

namespace {

// The library looks for the name in a line. Which key the line has does not matter.
bool isHashOf(LIBSSH2_SESSION *session, const std::string &hashed, const std::string &name) {
    constexpr std::string_view key = "the public key";
    constexpr int plain = LIBSSH2_KNOWNHOST_TYPE_PLAIN | LIBSSH2_KNOWNHOST_KEYENC_RAW;
    const std::string line = hashed + " ssh-rsa " + SSHPlatform::base64(key) + "\n";
    const std::unique_ptr<LIBSSH2_KNOWNHOSTS, decltype(&libssh2_knownhost_free)> hosts(
        libssh2_knownhost_init(session), libssh2_knownhost_free);
    return hosts &&
           libssh2_knownhost_readline(hosts.get(), line.data(), line.size(),
                                      LIBSSH2_KNOWNHOST_FILE_OPENSSH) == 0 &&
           libssh2_knownhost_check(hosts.get(), name.c_str(), key.data(), key.size(), plain,
                                   nullptr) == LIBSSH2_KNOWNHOST_CHECK_MATCH;
}

} // namespace

IsHashOf hashesBy(LIBSSH2_SESSION *session) {
    return [session](const std::string &hashed, const std::string &name) {
        return isHashOf(session, hashed, name);
    };
}

} // namespace SSHEngine
