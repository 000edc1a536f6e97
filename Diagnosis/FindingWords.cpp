#include "Diagnosis/FindingWords.h"

#include "Session/KeyType.h"

#include <SSHSession/PrintableText.h>
#include <SSHSession/SSHEscapeString.h>

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <utility>

namespace SSHEngine {

namespace {

constexpr std::size_t longest = 200; // bytes

// Each run of white space becomes one space; none at either end.
std::string inOneLine(std::string_view text) {
    std::string line;
    bool isSpaced = false;
    for (const char character : text) {
        const bool isSpace = std::string_view(" \t\r\n\v\f").find(character) != std::string::npos;
        if (!isSpace && isSpaced && !line.empty())
            line += ' ';
        if (!isSpace)
            line += character;
        isSpaced = isSpace;
    }
    return line;
}

bool isInsideCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

bool isSame(char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) ==
           std::tolower(static_cast<unsigned char>(b));
}

bool isPlainInShells(char character) {
    return std::isalnum(static_cast<unsigned char>(character)) != 0 ||
           std::string_view("_@%+=:,./-").find(character) != std::string_view::npos;
}

std::string within(const std::string &type, const std::string &fingerprint) {
    const std::string both = inOneLine(keyTypeForPeople(type) + " " + fingerprint);
    return both.empty() ? "" : fmt::format(" ({})", shown(both));
}

} // namespace

std::string shown(std::string_view text) {
    std::string line = SSHPlatform::printableText(inOneLine(text), "");
    if (line.size() <= longest)
        return line;
    std::size_t end = longest;
    while (end > 0 && isInsideCharacter(line[end]))
        --end;
    return line.substr(0, end) + "...";
}

// A home directory stays one for the shell. A file is none of a command's options, and neither is
// what else begins as one.
std::string shellWord(std::string_view text) {
    std::string word = shown(text);
    if (word.starts_with('-'))
        word.insert(0, "./");
    if (word.empty())
        return "''";
    const std::size_t home = word.starts_with("~/") ? 2 : 0;
    if (std::all_of(word.begin() + static_cast<std::ptrdiff_t>(home), word.end(), isPlainInShells))
        return word;
    return word.substr(0, home) + SSHEscapeString(word.substr(home));
}

std::string enumeration(const std::vector<std::string> &names, std::string_view last) {
    constexpr std::size_t most = 3;
    std::vector<std::string> named(
        names.begin(), names.begin() + static_cast<std::ptrdiff_t>(std::min(names.size(), most)));
    if (names.size() > most)
        named.push_back(fmt::format("{} more", names.size() - most));
    std::string text;
    for (std::size_t i = 0; i < named.size(); ++i) {
        const bool isLast = i + 1 == named.size();
        text += (i == 0 ? "" : isLast ? fmt::format(" {} ", last) : ", ") + named[i];
    }
    return text;
}

std::string quotedAs(std::string_view introduction, std::string_view words) {
    const std::string line = shown(words);
    const char *const end = line.ends_with('.') ? "" : ".";
    return line.empty() ? "" : fmt::format(" {}: \"{}\"{}", introduction, line, end);
}

bool holds(std::string_view text, std::string_view words) {
    return std::search(text.begin(), text.end(), words.begin(), words.end(), isSame) != text.end();
}

std::string_view wordsIn(std::string_view text, std::span<const std::string_view> words) {
    const auto found = std::find_if(words.begin(), words.end(),
                                    [&](std::string_view each) { return holds(text, each); });
    return found == words.end() ? "" : *found;
}

std::string lineWith(std::string_view text, std::string_view words) {
    std::string result;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string line = shown(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (!words.empty() && holds(line, words))
            return line;
        if (!line.empty())
            result = std::move(line);
    }
    return result;
}

std::string describedKey(const std::string &path, const std::string &type,
                         const std::string &fingerprint) {
    return shown(path) + within(type, fingerprint);
}

std::string describedKey(const SSHAttempt &attempt) {
    const std::string key = attempt.isFromAgent
                                ? fmt::format("the agent's key \"{}\"", shown(attempt.key))
                                : "the key " + shown(attempt.key);
    return key + within(attempt.keyType, attempt.keyFingerprint);
}

} // namespace SSHEngine
