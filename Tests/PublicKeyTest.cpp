#include "Tests/Support/SessionTest.h"

#include <fmt/format.h>

#include <regex>

using SSHPlatform::AlertAnswer;
using testing::HasSubstr;

namespace {

class PublicKeyTest : public SessionTest {
  protected:
    std::string path(const std::string &name) { return home.directory.path(".ssh/" + name); }

    static std::string trying(const std::string &name, const char *how, const char *result,
                              bool isPair = true) {
        const std::string file = "~/.ssh/" + name;
        return fmt::format("Trying to authenticate with key files [[{}]] and [[{}]] and {}...\n"
                           "Failed.{}\n",
                           isPair ? file + ".pub" : "(null)", file, how, result);
    }

    // Runs the key stage alone; the answer is empty for success, else the transcript.
    std::string authenticate(std::optional<std::string> keyFile = std::nullopt) {
        const auto session = makeSession(server().port(), std::nullopt, std::move(keyFile));
        const bool accepted = session->_authenticateWithPublicKey(*session->handshaken(), &error);
        session->stop();
        return accepted ? ""
                        : std::regex_replace(*error->localizedFailureReason(),
                                             std::regex(home.directory.path()), "~");
    }
};

} // namespace

TEST_F(PublicKeyTest, TheUserSpecifiedKeyThenStandardPairs) {
    makeKey(path("other"), "ecdsa");
    makeKey(path("locked"), "ed25519", "sesame");
    server().authorize(path("locked"));
    home.directory.write(".ssh/garbage", std::string(3000, '\xfe'));
    makeKey(path("id_rsa"), "rsa");
    makeKey(path("id_dsa"), "dsa");
    const std::string dsa = trying("id_dsa", "no password", "");
    for (const auto &[file, result] : std::vector<std::pair<std::string, const char *>>{
             {"other", ""},
             {"locked", " (-16)"}, // without a .pub file beside it, no prompt can help
             {"garbage", " (-16)"}})
        EXPECT_EQ(authenticate(path(file)), trying(file, "no password", result, false) + dsa +
                                                trying("id_rsa", "no password", ""));
    std::filesystem::remove(path("id_rsa"));
    EXPECT_EQ(authenticate(""), "The user-specified key file [[]] does not exist.\n" + dsa +
                                    "The standard key file [[~/.ssh/id_rsa]] does not exist.\n");
    server().authorize(path("id_dsa")); // the library must have been built with DSA for this
    EXPECT_EQ(authenticate(), "");
}

TEST_F(PublicKeyTest, AnEncryptedStandardKeyAsksOnce) {
    makeKey(path("id_rsa"), "rsa", "sesame");
    server().authorize(path("id_rsa"));
    const std::string asked = "The standard key file [[~/.ssh/id_dsa.pub]] does not exist.\n" +
                              trying("id_rsa", "no password", " Key unverified.") +
                              "Asking user for key file password...\n";
    const std::string prompt = "Enter your password for the SSH key \"id_rsa\". | This SSH key is "
                               "password-protected. | OK | Cancel";
    for (const auto &[answer, typed, transcript] :
         std::vector<std::tuple<AlertAnswer, const char *, std::string>>{
             {AlertAnswer::FirstButton, "sesame", ""},
             {AlertAnswer::FirstButton, "open",
              asked + trying("id_rsa", "password", " Key unverified.")}}) {
        user->answers = {answer};
        user->typed = typed;
        EXPECT_EQ(authenticate(), transcript);
        EXPECT_EQ(std::exchange(user->shown, {}),
                  Lines{prompt + " | [alertAccessoryView, unchecked]"});
    }
    user->hasNib = false; // and so no field to type in
    user->answers = {AlertAnswer::FirstButton};
    EXPECT_EQ(authenticate(), asked + "No password was given. Failing.\n");
    EXPECT_EQ(user->shown, Lines{prompt});
    EXPECT_EQ(user->beeps, 1);
    EXPECT_EQ(log, Lines{"SSHSession: Loading SSHPasswordAlertAccessoryView failed."});
}

TEST_F(PublicKeyTest, AgentIdentities) {
    makeKey(path("other"), "ecdsa");
    makeKey(path("rsa"), "rsa");
    server().authorize(path("rsa"));
    const auto stageWith = [&](const std::vector<std::string> &keys) {
        const auto agent = keys.empty() ? nullptr : std::make_unique<SshAgent>(keys);
        const auto session = makeSession(server().port());
        const auto connection = session->handshaken();
        error = nullptr;
        const bool isAccepted = session->_authenticateWithAgent(*connection, &error);
        EXPECT_EQ(isAccepted, connection->agent() != nullptr);
        session->stop();
        return (isAccepted ? "accepted, " : "") + summary(error);
    };
    EXPECT_EQ(stageWith({path("other"), path("rsa")}), "accepted, no error"); // the second one
    EXPECT_THAT(stageWith({path("other")}),
                HasSubstr("| SSH could not authenticate using ssh-agent. | -"));
    EXPECT_THAT(stageWith({}),
                HasSubstr("-39 | An error occurred in libssh2_agent_connect. (-39)"));
}
