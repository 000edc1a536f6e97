// What the lines of known-hosts files say of a host, as ssh(1) reads them: sshd(8),
// "SSH_KNOWN_HOSTS FILE FORMAT". Pure: nothing here opens a file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace SSHEngine {

// A host's key as a line writes it.
struct KnownHostKey {
    std::string type;   // "ssh-ed25519"
    std::string base64; // of the wire encoding of RFC 4253, section 6.6, which names the type too
    std::string fingerprint; // for people, as `ssh-keygen -l` prints it; in no line
};

// Of several lines, the one that comes last here decides.
enum class KeyStanding {
    Unknown,
    Changed, // the host has other keys, of this type or another
    Match,
    Revoked,
};

// Whether a line's hashed name "|1|salt|hash", which is well formed, stands for `name`.
using IsHashOf = std::function<bool(const std::string &hashed, const std::string &name)>;

// A line that names the host, with whatever port.
struct ListedKey {
    std::size_t number = 0; // of the line, from 1
    std::string name;       // as it stands there
    std::string keyType, base64;
    bool isForThisPort = false;
    bool isRevoked = false;
};

struct HostListing {
    std::vector<ListedKey> keys;
    std::vector<std::size_t> badLines; // numbers of those that are neither entries nor comments
};

class NamedHost {
  public:
    // A port other than 22 is a part of the name.
    NamedHost(const std::string &host, std::uint16_t port, IsHashOf isHashOf);

    KeyStanding standing(std::string_view content, const KnownHostKey &key) const;

    // The types of the host's keys.
    std::set<std::string> keyTypes(std::string_view content) const;

    // The lines that name the host. A hashed name shows only this port, or none.
    HostListing listing(std::string_view content) const;

    // Whether a line for this host and key would be read as that and nothing else.
    bool canRecord(const KnownHostKey &key) const;

    // The content with a line for the key at its end, without the host's other keys: a line that
    // lists more names loses this one. Lines that mean the host by a pattern, that are marked or
    // that cannot be read stay, every byte of them. Nothing when the key stands there already, or
    // is revoked.
    std::optional<std::string> withKey(std::string_view content, const KnownHostKey &key) const;

  private:
    bool isMeantBy(std::string_view hosts) const;
    bool isInList(std::string_view patterns) const;
    std::optional<std::string> nameIn(std::string_view hosts) const;
    KeyStanding standingInLine(std::string_view text, const KnownHostKey &key) const;
    std::string withoutOtherKey(std::string_view text, const KnownHostKey &key) const;
    std::string lineFor(const KnownHostKey &key) const;

    const std::string mHost;
    const std::string mName;
    const IsHashOf mIsHashOf;
};

} // namespace SSHEngine
