// The account of the key files that were looked for and tried.
#pragma once

#include <optional>
#include <string>

namespace SSHEngine {

struct KeyFiles {
    std::optional<std::string> publicKey; // none: the library derives it from the private key
    std::string privateKey;
};

class KeyTranscript {
  public:
    void userKeyIsMissing(const std::string &path);
    void standardKeyIsMissing(const std::string &path);
    void trying(const KeyFiles &files, bool withPassphrase);
    void result(int code); // of libssh2_userauth_publickey_fromfile_ex(3)
    void asking();
    void noPassphrase();

    // Every line ends with a line feed.
    const std::string &text() const { return mText; }

  private:
    std::string mText;
};

} // namespace SSHEngine
