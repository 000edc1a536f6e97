#include "Commands/FollowedSudo.h"

#include "Platform/Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace SSHEngine {

namespace {

// sudo alone makes one percent sign of two. A login shell that shows the command line which it runs
// ("set -x") does not, so what it shows is not taken for the question.
constexpr std::string_view promptArgument = "#SSHSession%%EnterPassword^";
constexpr std::string_view question = "#SSHSession%EnterPassword^";

// The empty line before it ends one that the login shell has left unfinished.
const std::string announcement = fmt::format("\n{}\n", successMarker);
constexpr std::size_t longestRefusal = 2000;

// One word for every shell. What differs between them stands behind a backslash outside the quotes:
// fish knows escapes within, and csh's history is told of exclamation marks.
std::string inSingleQuotes(std::string_view text) {
    std::string word = "'";
    for (const char byte : text) {
        const bool differs = byte == '\'' || byte == '\\' || byte == '!';
        word.append(differs ? "'\\" : "").push_back(byte);
        word.append(differs ? "'" : "");
    }
    return word + "'";
}

// As a part of a script for sh that has no line ends, which csh takes in no word. Read only once
// the announcement is made, so that a mistake in it is its own; the space keeps a hyphen from being
// an option of eval's.
std::string inOneLine(const std::string &command) {
    std::string format;
    for (const char byte : command)
        switch (byte) {
        case '\n':
        case '\\':
        case '\'':
            format += fmt::format("\\{:03o}", byte);
            break;
        case '%':
            format += "%%";
            break;
        default:
            format.push_back(byte);
        }
    return fmt::format("eval \" $(printf -- '{}')\"", format);
}

bool asks(std::string_view errorOutput) {
    return errorOutput.substr(errorOutput.rfind('\n') + 1).find(question) != std::string_view::npos;
}

} // namespace

std::string followedSudoCommand(const std::string &command) {
    return fmt::format(
        "/usr/bin/sudo -S -p '{}' /bin/sh -c {}", promptArgument,
        inSingleQuotes(fmt::format("echo; echo '{}'; {}", successMarker, inOneLine(command))));
}

SudoConversation::Outcome FollowedSudo::examine(SSHPlatform::ByteBuffer &output,
                                                SSHPlatform::ByteBuffer &errorOutput,
                                                bool keepReading, Clock::time_point now) {
    if (output.size() != mOutputSize || errorOutput.size() != mErrorOutputSize)
        mLastActivity = now;
    const std::size_t begin = mOutputSize - std::min(mOutputSize, announcement.size());
    mOutputSize = output.size();
    mErrorOutputSize = errorOutput.size();
    const std::size_t found = output.view().find(announcement, begin);
    if (found != std::string_view::npos) {
        output.removeFromFront(found + announcement.size());
        return Outcome::Accepted;
    }
    if (!keepReading)
        return Outcome::Refused;
    if (asks(errorOutput.view())) {
        errorOutput.clear();
        mErrorOutputSize = 0;
        return Outcome::Asked;
    }
    return now - mLastActivity > longestSilence ? Outcome::TimedOut : Outcome::Pending;
}

// The last words are the ones that say why.
std::string FollowedSudo::refusal(std::string_view errorOutput) const {
    constexpr const char *space = " \t\r\n";
    std::string words(
        errorOutput.substr(errorOutput.size() - std::min(errorOutput.size(), longestRefusal)));
    for (std::size_t at = 0; (at = words.find(question)) != std::string::npos;)
        words.erase(at, question.size());
    words.erase(0, words.find_first_not_of(space));
    words.erase(words.find_last_not_of(space) + 1);
    return words.empty() ? "sudo has ended without saying why." : SSHPlatform::decodedUTF8(words);
}

} // namespace SSHEngine
