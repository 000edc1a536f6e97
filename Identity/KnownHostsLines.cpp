#include "Identity/KnownHostsLines.h"

#include <SSHSession/Base64.h>

#include <algorithm>
#include <utility>

namespace SSHEngine {

namespace {

enum class Marker { None, Authority, Revoked };

// Views of the line that it was read from.
struct Line {
    Marker marker = Marker::None;
    std::string_view hosts;
    std::string_view keyType;
    std::string_view key;
};

constexpr std::string_view blanks = " \t";

char lowered(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

std::string lowered(std::string_view text) {
    std::string result(text);
    for (char &letter : result)
        letter = lowered(letter);
    return result;
}

// Up to and with the separator, which is missing at the end.
std::string_view takePiece(std::string_view &text, char separator) {
    const std::size_t end = std::min(text.find(separator), text.size() - 1) + 1;
    const std::string_view piece = text.substr(0, end);
    text.remove_prefix(end);
    return piece;
}

std::string_view takeWord(std::string_view &text) {
    const std::size_t end = std::min(text.find_first_of(blanks), text.size());
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(std::min(text.find_first_not_of(blanks, end), text.size()));
    return word;
}

bool isBase64(std::string_view text) {
    constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::size_t end = std::min(text.find_first_not_of(alphabet), text.size());
    const std::string_view padding = text.substr(end);
    return !text.empty() && text.size() % 4 == 0 &&
           (padding.empty() || padding == "=" || padding == "==");
}

// A key begins with the name of its type, so its base64 with that name's: all of it but the last
// letters, which depend on what follows.
bool isKeyOfType(std::string_view key, std::string_view type) {
    std::string name(3, '\0');
    name += static_cast<char>(type.size());
    name += type;
    const std::string start = SSHPlatform::base64(name).substr(0, name.size() / 3 * 4);
    return !type.empty() && type.size() < 128 && isBase64(key) && key.starts_with(start);
}

// "|1|", and salt and hash of 20 bytes each. Those of other lengths can make libssh2 1.10 write
// beyond its memory.
bool isHashedName(std::string_view hosts) {
    constexpr std::size_t size = 28;
    return hosts.size() == 3 + size + 1 + size && hosts.starts_with("|1|") &&
           hosts[3 + size] == '|' && isBase64(hosts.substr(3, size)) &&
           isBase64(hosts.substr(3 + size + 1));
}

std::optional<Marker> takeMarker(std::string_view &text) {
    if (!text.starts_with('@'))
        return Marker::None;
    const std::string_view word = takeWord(text);
    if (word == "@revoked")
        return Marker::Revoked;
    return word == "@cert-authority" ? std::optional(Marker::Authority) : std::nullopt;
}

std::optional<Line> parsed(std::string_view text) {
    text = text.substr(0, text.find_last_not_of("\r\n") + 1);
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    if (text.starts_with('#'))
        return std::nullopt;
    const std::optional<Marker> marker = takeMarker(text);
    Line line;
    line.hosts = takeWord(text);
    line.keyType = takeWord(text);
    line.key = takeWord(text);
    if (!marker || line.hosts.starts_with('@') || !isKeyOfType(line.key, line.keyType))
        return std::nullopt;
    line.marker = *marker;
    return line;
}

bool isSame(const Line &line, const KnownHostKey &key) {
    return line.keyType == key.type && line.key == key.base64;
}

// "*" stands for any letters, "?" for one. When the rest does not fit, the last "*" takes one more.
bool fits(std::string_view name, std::string_view pattern) {
    constexpr std::size_t none = std::string_view::npos;
    std::size_t n = 0;
    std::size_t p = 0;
    std::size_t star = none;
    std::size_t afterStar = 0;
    while (n < name.size())
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            afterStar = n;
        } else if (p < pattern.size() && (pattern[p] == '?' || lowered(pattern[p]) == name[n])) {
            ++p;
            ++n;
        } else if (star != none) {
            p = star + 1;
            n = ++afterStar;
        } else
            return false;
    return pattern.find_first_not_of('*', p) == none;
}

bool isBlankOrComment(std::string_view text) {
    const std::size_t start = text.find_first_not_of(" \t\r\n");
    return start == std::string_view::npos || text[start] == '#';
}

// Whether a name stands for the host with any port: "[host]:port".
bool isWithPort(std::string_view name, const std::string &host) {
    const std::string start = "[" + host + "]:";
    return lowered(name).starts_with(start) && name.size() > start.size() &&
           name.find_first_not_of("0123456789", start.size()) == std::string_view::npos;
}

} // namespace

NamedHost::NamedHost(const std::string &host, std::uint16_t port, IsHashOf isHashOf)
    : mHost(lowered(host)), mName(port == 22 ? mHost : "[" + mHost + "]:" + std::to_string(port)),
      mIsHashOf(std::move(isHashOf)) {}

bool NamedHost::isInList(std::string_view patterns) const {
    bool isMeant = false;
    while (!patterns.empty()) {
        std::string_view pattern = takePiece(patterns, ',');
        pattern = pattern.substr(0, pattern.find(','));
        const bool isNegated = pattern.starts_with('!');
        if (!fits(mName, pattern.substr(isNegated ? 1 : 0)))
            continue;
        if (isNegated)
            return false;
        isMeant = true;
    }
    return isMeant;
}

bool NamedHost::isMeantBy(std::string_view hosts) const {
    if (hosts.starts_with('|'))
        return isHashedName(hosts) && mIsHashOf(std::string(hosts), mName);
    return isInList(hosts);
}

KeyStanding NamedHost::standingInLine(std::string_view text, const KnownHostKey &key) const {
    const std::optional<Line> line = parsed(text);
    if (!line || line->marker == Marker::Authority || !isMeantBy(line->hosts))
        return KeyStanding::Unknown;
    if (line->marker == Marker::Revoked)
        return isSame(*line, key) ? KeyStanding::Revoked : KeyStanding::Unknown;
    return isSame(*line, key) ? KeyStanding::Match : KeyStanding::Changed;
}

KeyStanding NamedHost::standing(std::string_view content, const KnownHostKey &key) const {
    KeyStanding result = KeyStanding::Unknown;
    while (!content.empty())
        result = std::max(result, standingInLine(takePiece(content, '\n'), key));
    return result;
}

std::set<std::string> NamedHost::keyTypes(std::string_view content) const {
    std::set<std::string> types;
    while (!content.empty()) {
        const std::optional<Line> line = parsed(takePiece(content, '\n'));
        if (line && line->marker == Marker::None && isMeantBy(line->hosts))
            types.emplace(line->keyType);
    }
    return types;
}

// The one by which a line means the host; none when it does not.
std::optional<std::string> NamedHost::nameIn(std::string_view hosts) const {
    if (hosts.starts_with('|'))
        return isHashedName(hosts) && (mIsHashOf(std::string(hosts), mName) ||
                                       mIsHashOf(std::string(hosts), mHost))
                   ? std::optional(std::string(hosts))
                   : std::nullopt;
    for (std::string_view rest = hosts; !rest.empty();) {
        const std::string_view piece = takePiece(rest, ',');
        const std::string_view name = piece.substr(0, piece.find(','));
        if (isWithPort(name, mHost) || fits(mName, name) || fits(mHost, name))
            return std::string(name);
    }
    return std::nullopt;
}

HostListing NamedHost::listing(std::string_view content) const {
    HostListing result;
    for (std::size_t number = 1; !content.empty(); ++number) {
        const std::string_view text = takePiece(content, '\n');
        const std::optional<Line> line = parsed(text);
        if (!line && !isBlankOrComment(text))
            result.badLines.push_back(number);
        if (!line || line->marker == Marker::Authority)
            continue;
        if (const std::optional<std::string> name = nameIn(line->hosts))
            result.keys.push_back({.number = number,
                                   .name = *name,
                                   .keyType = std::string(line->keyType),
                                   .base64 = std::string(line->key),
                                   .isForThisPort = isMeantBy(line->hosts),
                                   .isRevoked = line->marker == Marker::Revoked});
    }
    return result;
}

std::string NamedHost::lineFor(const KnownHostKey &key) const {
    return mName + ' ' + key.type + ' ' + key.base64 + '\n';
}

bool NamedHost::canRecord(const KnownHostKey &key) const {
    return mName.find_first_of("*?") == std::string::npos &&
           standing(lineFor(key), key) == KeyStanding::Match;
}

std::string NamedHost::withoutOtherKey(std::string_view text, const KnownHostKey &key) const {
    if (standingInLine(text, key) != KeyStanding::Changed)
        return std::string(text);
    const std::string_view hosts = parsed(text)->hosts;
    if (hosts.starts_with('|'))
        return "";
    std::string others;
    for (std::string_view rest = hosts; !rest.empty();) {
        const std::string_view name = takePiece(rest, ',');
        if (lowered(name.substr(0, name.find(','))) != mName)
            others += name;
    }
    if (others.empty())
        return "";
    if (others.ends_with(',') && !hosts.ends_with(','))
        others.pop_back(); // the last name was this one
    const auto start = static_cast<std::size_t>(hosts.data() - text.data());
    return std::string(text).replace(start, hosts.size(), others);
}

std::optional<std::string> NamedHost::withKey(std::string_view content,
                                              const KnownHostKey &key) const {
    if (standing(content, key) >= KeyStanding::Match)
        return std::nullopt;
    std::string result;
    while (!content.empty())
        result += withoutOtherKey(takePiece(content, '\n'), key);
    if (!result.empty() && !result.ends_with('\n'))
        result += '\n';
    return result + lineFor(key);
}

} // namespace SSHEngine
