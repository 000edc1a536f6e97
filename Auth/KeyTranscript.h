// The account of the key files that were looked for and tried.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace SSHEngine {

struct KeyFiles {
    std::optional<std::string> publicKey; // none: the library derives it from the private key
    std::string privateKey;
};

// "The agent holds 3 more identities, which ...", and a line feed; empty for 0.
std::string identitiesLeftOutText(std::size_t count);

class KeyTranscript {
  public:
    void userKeyIsMissing(const std::string &path);
    void standardKeyIsMissing(const std::string &path);
    void trying(const KeyFiles &files, bool withPassphrase);
    void result(int code); // of libssh2_userauth_publickey_fromfile_ex(3)
    void asking();
    void noPassphrase();

    // --- Only with SSHSessionOptions::triesKeysOfToday
    void leavingOut(const std::string &path, const std::string &reason);
    void triedAlready(const std::string &path);
    void wrongPassphrase();
    void unreadable(int code);
    void takenInPart();
    void hungUp();
    void noAgent();
    void agentFailed(int code);
    // The comment is the agent's: whatever anybody has given it.
    void tryingIdentity(const std::string &comment, const std::string &type);
    void agentDidNotSign();
    void identitiesLeftOut(std::size_t count);

    // Every line ends with a line feed.
    const std::string &text() const { return mText; }

  private:
    std::string mText;
};

} // namespace SSHEngine
