#include "Auth/Conversation.h"

#include <SSHSession/PrintableText.h>

#include <fmt/format.h>
#include <utf8.h>

#include <algorithm>
#include <cctype>
#include <utility>

namespace SSHEngine {

using SSHPlatform::Secret;

namespace {

constexpr std::size_t mostPrompts = 32;
constexpr int mostRounds = 20;
constexpr std::ptrdiff_t mostCharacters = 1000;
constexpr std::size_t mostLines = 20;

// A line of the server's cannot be taken for one of ours: all but the first are indented.
std::string indented(const std::string &text) {
    std::string result;
    for (const char character : text) {
        result += character;
        if (character == '\n')
            result += "    ";
    }
    return result;
}

std::string cut(const std::string &text) {
    auto end = text.begin();
    std::size_t lines = 1;
    for (std::ptrdiff_t i = 0; end != text.end() && i < mostCharacters; ++i) {
        if (*end == '\n' && ++lines > mostLines)
            break;
        utf8::unchecked::next(end);
    }
    return end == text.end() ? text : std::string(text.begin(), end) + " [...]";
}

std::string harmless(std::string_view text) {
    const std::string printable = SSHPlatform::printableText(text);
    const auto end = printable.find_last_not_of(" \n");
    return indented(cut(printable.substr(0, end == std::string::npos ? 0 : end + 1)));
}

std::string said(std::string_view text) {
    return text.empty() ? "" : fmt::format("The server says: {}\n", harmless(text));
}

bool mentions(std::string_view text, std::string_view word) {
    return std::search(text.begin(), text.end(), word.begin(), word.end(), [](char a, char b) {
               return std::tolower(static_cast<unsigned char>(a)) == b;
           }) != text.end();
}

// A password for one time, or one that is yet to be chosen, is not the one that was given.
bool wantsPassword(std::string_view text) {
    return mentions(text, "password") && !mentions(text, "one-time") &&
           !mentions(text, "one time") && !mentions(text, "new password");
}

} // namespace

std::string questionText(const ServersRequest &request, const ServersPrompt &prompt) {
    return said(request.name) + said(request.instruction) +
           fmt::format("The server asks: {}", harmless(prompt.text));
}

Conversation::Conversation(Ask ask, Secret password, bool mayAskForPassword)
    : mAsk(std::move(ask)), mPassword(std::move(password)), mMayAskForPassword(mayAskForPassword) {}

std::optional<std::vector<Secret>> Conversation::answers(const ServersRequest &request) {
    if (request.prompts.size() > mostPrompts)
        giveUpTooManyPrompts();
    else if (!request.prompts.empty() && ++mRounds > mostRounds)
        giveUp(fmt::format("The server kept asking, and was given up after {} rounds of questions.",
                           mostRounds));
    if (request.prompts.empty())
        mSaid = said(request.name) + said(request.instruction);
    std::vector<Secret> given;
    for (const ServersPrompt &prompt : request.prompts) {
        if (mIsGivenUp)
            return std::nullopt;
        given.push_back(answer(request, prompt));
        if (!given.back())
            giveUp("The server's question was not answered.");
    }
    return mIsGivenUp ? std::nullopt : std::optional(std::move(given));
}

// Also where a server is told what it has not asked for, a password must not reach it as anything
// else: only the first request with a question is for it.
bool Conversation::isForPassword(const ServersRequest &request) const {
    return mRounds == 1 && request.prompts.size() == 1 && request.prompts[0].isSecret &&
           wantsPassword(request.prompts[0].text);
}

Secret Conversation::answer(const ServersRequest &request, const ServersPrompt &prompt) {
    if (isForPassword(request) && (mPassword || !mMayAskForPassword))
        return mPassword;
    return mAsk(questionText(request, prompt), prompt.isSecret);
}

void Conversation::giveUpTooManyPrompts() {
    giveUp(fmt::format("The server asked more than {} questions at once.", mostPrompts));
}

void Conversation::giveUp(const std::string &why) {
    if (!mIsGivenUp)
        mWhy = why + "\n";
    mIsGivenUp = true;
}

std::string Conversation::account() const {
    return mWhy + mSaid;
}

} // namespace SSHEngine
