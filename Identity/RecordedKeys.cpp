#include "Identity/RecordedKeys.h"

#include "Identity/HashedNames.h"
#include "Identity/KnownHostsFile.h"
#include "Platform/AtomicFile.h"
#include "Platform/ReadFile.h"
#include "Session/Connection.h"
#include "Session/KeyEncoding.h"
#include "Session/KeyType.h"
#include "Session/LibraryAlgorithms.h"
#include "Session/SSHSession_libssh2.h"

#include <fmt/format.h>

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <vector>

namespace SSHEngine {

namespace {

constexpr std::uint16_t usualPort = 22;

struct File {
    std::string path;
    std::string content;
};

using Files = std::vector<File>;

// Answers 0, or errno's number when the file is there, but cannot be read.
int readInto(Files &files, const std::string &path) {
    files.push_back({path, ""});
    const int failure = SSHPlatform::readFile(path, mostKnownHostsBytes, files.back().content);
    return failure == ENOENT ? 0 : failure;
}

// The system's file comes after the user's; where it cannot be read it does not count. The failure
// is that of the user's.
std::pair<Files, int> readFiles(const std::string &knownHostsPath) {
    Files files;
    const int failure = readInto(files, knownHostsPath);
    readInto(files, systemKnownHostsPath);
    return {std::move(files), failure};
}

NamedHost named(const Connection &connection, std::uint16_t port) {
    return {connection.engine.host().value_or(""), port, hashesBy(connection.session())};
}

NamedHost named(const Connection &connection) {
    return named(connection, connection.engine.port());
}

struct Finding {
    KeyStanding standing = KeyStanding::Unknown;
    std::string path; // of the file that says so
};

Finding lookUp(const Files &files, const NamedHost &host, const KnownHostKey &key) {
    Finding result;
    for (const File &file : files)
        if (const KeyStanding standing = host.standing(file.content, key);
            standing > result.standing)
            result = {standing, file.path};
    return result;
}

Finding lookUp(const Files &files, const Connection &connection, const KnownHostKey &key) {
    Finding result = lookUp(files, named(connection), key);
    const Finding bare = lookUp(files, named(connection, usualPort), key);
    if (bare.standing == KeyStanding::Revoked ||
        (bare.standing == KeyStanding::Match && result.standing == KeyStanding::Unknown))
        result = bare;
    return result;
}

std::set<std::string> recordedTypes(const Files &files, const NamedHost &host) {
    std::set<std::string> types;
    for (const File &file : files)
        types.merge(host.keyTypes(file.content));
    return types;
}

// RSA keys serve several algorithms (RFC 8332).
std::string keyTypeOf(const std::string &algorithm) {
    return algorithm.starts_with("rsa-sha2-") ? "ssh-rsa" : algorithm;
}

} // namespace

void preferRecordedKeyTypes(const Connection &connection) {
    const Files files = readFiles(knownHostsPath()).first;
    std::set<std::string> types = recordedTypes(files, named(connection));
    if (types.empty())
        types = recordedTypes(files, named(connection, usualPort));
    std::vector<std::string> algorithms =
        libraryAlgorithms(connection.session(), LIBSSH2_METHOD_HOSTKEY);
    const auto known =
        std::stable_partition(algorithms.begin(), algorithms.end(), [&](const std::string &name) {
            return types.contains(keyTypeOf(name));
        });
    if (known != algorithms.begin())
        libssh2_session_method_pref(connection.session(), LIBSSH2_METHOD_HOSTKEY,
                                    fmt::format("{}", fmt::join(algorithms, ",")).c_str());
}

int checkRecordedKeys(const Connection &connection, HostKeyCheck &check) {
    check.key = {keyTypeIn(check.hostPublicKey), check.hostFingerprint,
                 keyFingerprint(check.hostPublicKey)};
    const auto [files, failure] = readFiles(check.knownHostsPath);
    Finding finding = lookUp(files, connection, *check.key);
    if (failure != 0) {
        SSHPlatform::log(fmt::format("Could not read {}. {}", check.knownHostsPath,
                                     std::generic_category().message(failure)));
        // What cannot be read may say otherwise than the system's file.
        if (finding.standing == KeyStanding::Match)
            finding.standing = KeyStanding::Unknown;
    }
    switch (finding.standing) {
    case KeyStanding::Unknown:
        check.checkResult = LIBSSH2_KNOWNHOST_CHECK_NOTFOUND;
        return 0;
    case KeyStanding::Changed:
        check.checkResult = LIBSSH2_KNOWNHOST_CHECK_MISMATCH;
        check.mismatchPath = finding.path;
        return 0;
    case KeyStanding::Match:
        check.checkResult = LIBSSH2_KNOWNHOST_CHECK_MATCH;
        return 0;
    case KeyStanding::Revoked:
        break;
    }
    check.checkResult = LIBSSH2_KNOWNHOST_CHECK_FAILURE;
    check.facts.standing = SSHHostKeyStanding::Revoked;
    check.failure = fmt::format("The server's host key ({}) is marked as revoked in {}.",
                                check.key->fingerprint, finding.path);
    return LIBSSH2_ERROR_KNOWN_HOSTS;
}

int recordHostKey(const Connection &connection, const HostKeyCheck &check) {
    const NamedHost host = named(connection);
    if (!host.canRecord(*check.key))
        return LIBSSH2_ERROR_INVAL;
    // Where it cannot be made, the change below fails.
    ::mkdir(std::filesystem::path(check.knownHostsPath).parent_path().c_str(), S_IRWXU);
    bool isTooLong = false;
    const auto change = [&](const std::string &content) {
        isTooLong = content.size() > mostKnownHostsBytes;
        return isTooLong ? std::nullopt : host.withKey(content, *check.key);
    };
    const int failure = SSHPlatform::changeFile(check.knownHostsPath, change);
    return failure != 0 || isTooLong ? LIBSSH2_ERROR_FILE : 0;
}

} // namespace SSHEngine
