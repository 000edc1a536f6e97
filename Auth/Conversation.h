// The server's questions in one keyboard-interactive authentication (RFC 4256), and who answers
// them.
#pragma once

#include <SSHSession/Secret.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace SSHEngine {

// All texts are the server's, and may hold anything.
struct ServersPrompt {
    std::string_view text;
    bool isSecret = false; // the answer must not be seen while it is typed
};

struct ServersRequest {
    std::string_view name;
    std::string_view instruction;
    std::vector<ServersPrompt> prompts;
};

// How the user is asked: each of the server's texts marked as such, without what could steer a
// terminal or the direction of reading, and cut where it is too long to be read.
std::string questionText(const ServersRequest &request, const ServersPrompt &prompt);

class Conversation {
  public:
    // Shows a text and answers what the user types; none when the user declines.
    using Ask = std::function<SSHPlatform::Secret(const std::string &text, bool isSecret)>;
    // `password` may be none; `mayAskForPassword` is false for a user who was asked for it, and
    // declined.
    Conversation(Ask ask, SSHPlatform::Secret password, bool mayAskForPassword);

    // In the order of the prompts. None when the method is to be given up: by then, and from then
    // on, nobody is asked. The password answers a question for it, once; all others are the user's.
    std::optional<std::vector<SSHPlatform::Secret>> answers(const ServersRequest &request);

    bool isGivenUp() const { return mIsGivenUp; }
    // Why it was given up, and what the server last said without asking anything; lines.
    std::string account() const;

    // The same as when a request is found to be too long.
    void giveUpTooManyPrompts();

  private:
    bool isForPassword(const ServersRequest &request) const;
    SSHPlatform::Secret answer(const ServersRequest &request, const ServersPrompt &prompt);
    void giveUp(const std::string &why);

    Ask mAsk;
    SSHPlatform::Secret mPassword;
    const bool mMayAskForPassword;
    int mRounds = 0; // with prompts
    bool mIsGivenUp = false;
    std::string mWhy;
    std::string mSaid;
};

} // namespace SSHEngine
