#include "Tests/Support/SessionTest.h"

#include <fmt/format.h>

#include <tuple>

using SSHPlatform::AlertAnswer;

namespace {

class PublicKeyTest : public SessionTest {
  protected:
    std::string standardKey(const std::string &name) { return home.directory.path(".ssh/" + name); }

    std::string missing(const std::string &name) {
        return "The standard key file [[" + standardKey(name) + "]] does not exist.\n";
    }

    static std::string trying(const std::string &publicKey, const std::string &privateKey,
                              const char *how) {
        return fmt::format("Trying to authenticate with key files [[{}]] and [[{}]] and {}...\n",
                           publicKey, privateKey, how);
    }

    std::string tryingStandard(const std::string &name, const char *how) {
        return trying(standardKey(name + ".pub"), standardKey(name), how);
    }

    // Runs the key stage alone; the answer is empty for success, else the transcript.
    std::string authenticate(std::optional<std::string> keyFile = std::nullopt) {
        const auto session = makeSession(server().port(), std::nullopt, std::move(keyFile));
        const bool accepted = session->_authenticateWithPublicKey(*session->handshaken(), &error);
        session->stop();
        if (accepted)
            return "";
        std::string reason = error->localizedFailureReason().value_or("no reason");
        EXPECT_EQ(summary(error),
                  "libssh2ErrorDomain 0 | " + description + " | " + reason + " | -");
        return reason;
    }

    const std::string description =
        "Dravella could not make an SSH connection to " + currentUser() + "@127.0.0.1.";
};

} // namespace

TEST_F(PublicKeyTest, UserSpecifiedKeys) {
    const std::string other = home.directory.path("other");
    makeKey(other, "ecdsa");
    const std::string locked = home.directory.path("locked");
    makeKey(locked, "ed25519", "sesame");
    server().authorize(locked);
    const std::string rest = missing("id_dsa.pub") + missing("id_rsa.pub");
    EXPECT_EQ(authenticate(), rest);
    EXPECT_EQ(authenticate(key()), "");
    for (const auto &[file, line] : std::vector<std::pair<std::string, std::string>>{
             {other, "Failed.\n"},
             {locked, "Failed. (-16)\n"}, // without a .pub file beside it, no prompt can help
             {home.directory.path(), "Failed. (-16)\n"},
             {home.directory.write("empty", ""), "Failed. (-16)\n"},
             {home.directory.write("garbage", std::string(3000, '\xfe')), "Failed. (-16)\n"}})
        EXPECT_EQ(authenticate(file), trying("(null)", file, "no password") + line + rest);
    for (const std::string &absent : {std::string(), home.directory.path("absent")})
        EXPECT_EQ(authenticate(absent),
                  "The user-specified key file [[" + absent + "]] does not exist.\n" + rest);
    EXPECT_TRUE(user->shown.empty());
}

TEST_F(PublicKeyTest, AnEncryptedStandardKeyAsksOnce) {
    makeKey(standardKey("id_rsa"), "rsa", "sesame");
    server().authorize(standardKey("id_rsa"));
    const std::string asked = missing("id_dsa.pub") + tryingStandard("id_rsa", "no password") +
                              "Failed. Key unverified.\nAsking user for key file password...\n";
    const std::string nothing = asked + "No password was given. Failing.\n";
    const std::string again =
        asked + tryingStandard("id_rsa", "password") + "Failed. Key unverified.\n";
    const std::string prompt = "Enter your password for the SSH key \"id_rsa\". | This SSH key is "
                               "password-protected. | OK | Cancel";
    for (const auto &[answer, typed, transcript] :
         std::vector<std::tuple<AlertAnswer, const char *, std::string>>{
             {AlertAnswer::FirstButton, "sesame", ""},
             {AlertAnswer::FirstButton, "open", again},
             {AlertAnswer::FirstButton, "", nothing},
             {AlertAnswer::SecondButton, "sesame", nothing}}) {
        user->answers = {answer};
        user->typed = typed;
        EXPECT_EQ(authenticate(), transcript);
        EXPECT_EQ(std::exchange(user->shown, {}),
                  Lines{prompt + " | [alertAccessoryView, unchecked]"});
    }
    user->hasNib = false; // and so no field to type in
    user->answers = {AlertAnswer::FirstButton};
    EXPECT_EQ(authenticate(), nothing);
    EXPECT_EQ(user->shown, Lines{prompt});
    EXPECT_EQ(user->beeps, 1);
    EXPECT_EQ(log, Lines{"SSHSession: Loading SSHPasswordAlertAccessoryView failed."});
}

TEST_F(PublicKeyTest, StandardKeysAreTriedInPairsDSAFirst) {
    makeKey(standardKey("id_rsa"), "rsa");
    makeKey(standardKey("id_dsa"), "dsa");
    const std::string refused = tryingStandard("id_dsa", "no password") + "Failed.\n";
    EXPECT_EQ(authenticate(), refused + tryingStandard("id_rsa", "no password") + "Failed.\n");
    std::filesystem::remove(standardKey("id_rsa"));
    EXPECT_EQ(authenticate(), refused + missing("id_rsa"));
    server().authorize(standardKey("id_dsa")); // the library must have been built with DSA for this
    EXPECT_EQ(authenticate(), "");
}

TEST_F(PublicKeyTest, AgentIdentities) {
    const std::string rsa = home.directory.path("rsa");
    makeKey(rsa, "rsa");
    const std::string accepted = "no error";
    const std::string refused = "libssh2ErrorDomain 0 | " + description +
                                " | SSH could not authenticate using ssh-agent. | -";
    // What the stage alone reports.
    const auto agentStage = [&] {
        error = nullptr;
        const auto session = makeSession(server().port());
        const auto connection = session->handshaken();
        const bool isAccepted = session->_authenticateWithAgent(*connection, &error);
        EXPECT_EQ(isAccepted, error == nullptr);
        EXPECT_EQ(isAccepted, connection->agent() != nullptr);
        session->stop();
        return summary(error);
    };
    const auto stageWith = [&](const std::vector<std::string> &keys) {
        const SshAgent agent(keys);
        return agentStage();
    };
    EXPECT_EQ(stageWith({rsa, key()}), accepted); // the second one
    EXPECT_EQ(stageWith({rsa}), refused);
    EXPECT_EQ(stageWith({}), refused);
    server().authorize(rsa);
    EXPECT_EQ(stageWith({rsa}), accepted);
    const std::string noAgent =
        "libssh2ErrorDomain -39 | An error occurred in libssh2_agent_connect. (-39) | ";
    EXPECT_THAT(agentStage(), testing::StartsWith(noAgent)); // SSH_AUTH_SOCK is unset
    ::setenv("SSH_AUTH_SOCK", home.directory.path("gone").c_str(), 1);
    EXPECT_THAT(agentStage(), testing::HasSubstr("An error occurred in libssh2_agent_connect."));
}
