#include "Identity/KnownHostsFile.h"

#include "Platform/AtomicFile.h"
#include "Platform/Path.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

namespace SSHEngine {

namespace {

constexpr int plain = LIBSSH2_KNOWNHOST_TYPE_PLAIN | LIBSSH2_KNOWNHOST_KEYENC_RAW;
constexpr int fileFormat = LIBSSH2_KNOWNHOST_FILE_OPENSSH;
constexpr std::size_t lineBuffer = 4092; // that of the library's functions for whole files

using Collection = std::unique_ptr<LIBSSH2_KNOWNHOSTS, decltype(&libssh2_knownhost_free)>;

// Reads as libssh2_knownhost_readfile does: in pieces that fit its buffer, each up to a zero byte.
// But that function takes a file that ends in a read error for a shorter one.
int readEntries(LIBSSH2_KNOWNHOSTS *hosts, std::string_view content) {
    int code = 0;
    while (code == 0 && !content.empty()) {
        const std::string line(content.substr(0, std::min(content.find('\n'), lineBuffer - 2) + 1));
        content.remove_prefix(line.size());
        code =
            libssh2_knownhost_readline(hosts, line.c_str(), std::strlen(line.c_str()), fileFormat);
    }
    return code;
}

// What libssh2_knownhost_writefile would write.
int writeEntries(LIBSSH2_KNOWNHOSTS *hosts, std::string &content) {
    std::array<char, lineBuffer> line{};
    libssh2_knownhost *entry = nullptr;
    int code = 0;
    while (code == 0 && libssh2_knownhost_get(hosts, &entry, entry) == 0) {
        std::size_t length = 0;
        code = libssh2_knownhost_writeline(hosts, entry, line.data(), line.size(), &length,
                                           fileFormat);
        content.append(line.data(), code == 0 ? length : 0);
    }
    return code;
}

bool isKnown(LIBSSH2_KNOWNHOSTS *hosts, const KnownHost &host) {
    return libssh2_knownhost_check(hosts, host.name.c_str(), host.key.data(), host.key.size(),
                                   plain, nullptr) == LIBSSH2_KNOWNHOST_CHECK_MATCH;
}

// Answers nothing when there is nothing to write; `code` then tells whether that is a failure.
std::optional<std::string> withEntry(LIBSSH2_SESSION *session, const std::string &content,
                                     const KnownHost &host, int &code) {
    const Collection hosts(libssh2_knownhost_init(session), libssh2_knownhost_free);
    code = hosts ? readEntries(hosts.get(), content) : LIBSSH2_ERROR_ALLOC;
    if (code == LIBSSH2_ERROR_ALLOC || (code == 0 && isKnown(hosts.get(), host)))
        return std::nullopt;
    std::string result;
    code = addKnownHost(hosts.get(), host);
    if (code == 0)
        code = writeEntries(hosts.get(), result);
    return code == 0 ? std::optional(result) : std::nullopt;
}

} // namespace

std::string knownHostsPath() {
    return SSHPlatform::expandingTilde("~/.ssh/known_hosts");
}

int addKnownHost(LIBSSH2_KNOWNHOSTS *hosts, const KnownHost &host) {
    return libssh2_knownhost_addc(hosts, host.name.c_str(), nullptr, host.key.data(),
                                  host.key.size(), nullptr, 0, host.keyBits | plain, nullptr);
}

int recordKnownHost(LIBSSH2_SESSION *session, const std::string &path, const KnownHost &host) {
    int code = 0;
    const int failure = SSHPlatform::changeFile(
        path, [&](const std::string &content) { return withEntry(session, content, host, code); });
    return code == 0 && failure != 0 ? LIBSSH2_ERROR_FILE : code;
}

} // namespace SSHEngine
