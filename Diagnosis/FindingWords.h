// What findings are filled with, made fit to be shown: whatever comes from outside is one printable
// line of limited length.
#pragma once

#include <SSHSession/SSHFacts.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace SSHEngine {

// One printable line of at most 200 bytes, and "..." where there was more.
std::string shown(std::string_view text);

// The same as one word for a shell.
std::string shellWord(std::string_view text);

// "a, b and c" with the word between the last two, and "3 more" where there are too many.
std::string enumeration(const std::vector<std::string> &names, std::string_view last);

// " The server said: "words"." or nothing.
std::string quotedAs(std::string_view introduction, std::string_view words);

// The first of the words that the text holds, whatever the case; empty when it holds none.
std::string_view wordsIn(std::string_view text, std::span<const std::string_view> words);
bool holds(std::string_view text, std::string_view words);

// The line of the text that holds the words, or its last line that is not blank.
std::string lineWith(std::string_view text, std::string_view words);

// "the key ~/.ssh/id_rsa (RSA SHA256:...)"
std::string describedKey(const SSHAttempt &attempt);
std::string describedKey(const std::string &path, const std::string &type,
                         const std::string &fingerprint);

} // namespace SSHEngine
