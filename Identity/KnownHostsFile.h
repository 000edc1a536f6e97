// Adding to the known-hosts file what the user trusts.
#pragma once

#include <libssh2.h>

#include <cstddef>
#include <string>

namespace SSHEngine {

// ~/.ssh/known_hosts
std::string knownHostsPath();

// Which sessions that know every type of key read as well.
inline constexpr const char *systemKnownHostsPath = "/etc/ssh/ssh_known_hosts";
inline constexpr std::size_t mostKnownHostsBytes = std::size_t{16} << 20; // of a file they read

struct KnownHost {
    std::string name; // as it will stand in the file
    std::string key;  // in the wire encoding of RFC 4253, section 6.6
    int keyBits = 0;  // LIBSSH2_KNOWNHOST_KEY_...
};

// Adds an entry to a collection. Answers 0 or the library's code.
int addKnownHost(LIBSSH2_KNOWNHOSTS *hosts, const KnownHost &host);

// Reads the file again, adds an entry and writes all of the collection, unless a readable file
// holds this very entry by now. From the first line on that the library cannot read, the old
// entries are gone. Answers 0, the library's code, or LIBSSH2_ERROR_FILE where it was not the
// library that failed (see SSHPlatform::changeFile): then the file is as it was. `session` serves
// for memory and error texts alone.
int recordKnownHost(LIBSSH2_SESSION *session, const std::string &path, const KnownHost &host);

} // namespace SSHEngine
