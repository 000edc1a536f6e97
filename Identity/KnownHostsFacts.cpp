#include "Identity/KnownHostsFacts.h"

#include "Identity/KnownHostsFile.h"
#include "Platform/Path.h"
#include "Platform/ReadFile.h"
#include "Session/KeyEncoding.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace SSHEngine {

namespace {

bool mayWrite(const std::string &path) {
    return ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

void addLines(SSHKnownHostsFacts &facts, const std::string &path, const HostListing &listing) {
    for (const ListedKey &key : listing.keys)
        facts.lines.push_back({.file = path,
                               .number = key.number,
                               .name = key.name,
                               .keyType = key.keyType,
                               .fingerprint = keyFingerprint(decodedBase64(key.base64)),
                               .isForThisPort = key.isForThisPort,
                               .isRevoked = key.isRevoked});
}

} // namespace

SSHKnownHostsFacts knownHostsFacts(const NamedHost &host, const SSHSessionOptions &options) {
    SSHKnownHostsFacts facts;
    facts.path = knownHostsPath();
    const std::string directory = std::filesystem::path(facts.path).parent_path();
    facts.hasDirectory = SSHPlatform::fileExists(directory);
    facts.exists = SSHPlatform::fileExists(facts.path);
    facts.isWritable = mayWrite(directory) && (!facts.exists || mayWrite(facts.path));
    std::string content;
    std::error_code ignored;
    const int failure = SSHPlatform::readFile(facts.path, mostKnownHostsBytes, content);
    if (failure != 0 && failure != ENOENT)
        facts.problem = std::generic_category().message(
            std::filesystem::is_directory(facts.path, ignored) ? EISDIR : failure);
    HostListing listing = host.listing(content);
    addLines(facts, facts.path, listing);
    facts.badLines = std::move(listing.badLines);
    if (options.knowsEveryHostKeyType &&
        SSHPlatform::readFile(systemKnownHostsPath, mostKnownHostsBytes, content) == 0)
        addLines(facts, systemKnownHostsPath, host.listing(content));
    return facts;
}

} // namespace SSHEngine
