#include "Tests/Support/SessionTest.h"

#include <SSHSession/SSHSessionPasswordPanel.h>

#include <fmt/format.h>

using SSHPlatform::AlertAnswer;

namespace {

bool libraryHas(unsigned major, unsigned minor) {
    return LIBSSH2_VERSION_NUM >= (major << 16 | minor << 8);
}

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
        EXPECT_TRUE(session->_createSocket(&error) && session->_startSession(&error));
        const bool accepted = session->_authenticateWithPublicKey(&error);
        session->stop();
        if (accepted)
            return "";
        EXPECT_EQ(error->localizedDescription(),
                  "Dravella could not make an SSH connection to " + currentUser() + "@127.0.0.1.");
        EXPECT_EQ(error->code(), 0);
        return error->localizedFailureReason().value_or("no reason");
    }
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
    if (!libraryHas(1, 11))
        GTEST_SKIP() << "this libssh2 signs RSA keys with SHA-1 only, which sshd refuses";
    makeKey(standardKey("id_rsa"), "rsa", "sesame");
    server().authorize(standardKey("id_rsa"));
    const std::string asked = missing("id_dsa.pub") + tryingStandard("id_rsa", "no password") +
                              "Failed. Key unverified.\nAsking user for key file password...\n";
    const std::string nothing = "No password was given. Failing.\n";
    struct Case {
        const char *what;
        AlertAnswer answer;
        const char *typed;
        bool hasNib;
        std::string transcript; // empty: accepted
    };
    for (const Case &each : std::vector<Case>{
             {"right", AlertAnswer::FirstButton, "sesame", true, ""},
             {"wrong", AlertAnswer::FirstButton, "open", true,
              asked + tryingStandard("id_rsa", "password") + "Failed. Key unverified.\n"},
             {"cancelled", AlertAnswer::SecondButton, "sesame", true, asked + nothing},
             {"empty", AlertAnswer::FirstButton, "", true, asked + nothing},
             {"no field to type in", AlertAnswer::FirstButton, "sesame", false, asked + nothing}}) {
        SCOPED_TRACE(each.what);
        user->shown.clear();
        user->checkBoxStates.clear();
        user->answers = {each.answer};
        user->typed = each.typed;
        user->hasNib = each.hasNib;
        EXPECT_EQ(authenticate(), each.transcript);
        ASSERT_EQ(user->shown.size(), 1U);
        EXPECT_EQ(user->shown[0].messageText, "Enter your password for the SSH key \"id_rsa\".");
        EXPECT_EQ(user->shown[0].informativeText, "This SSH key is password-protected.");
        EXPECT_EQ(user->shown[0].buttons, (std::vector<std::string>{"OK", "Cancel"}));
        EXPECT_EQ(user->shown[0].view, each.hasNib ? "alertAccessoryView" : "");
        EXPECT_EQ(user->checkBoxStates, std::vector<bool>(each.hasNib ? 1 : 0, false));
        EXPECT_EQ(user->beeps, each.hasNib ? 0 : 1);
    }
    EXPECT_EQ(
        log, std::vector<std::string>{"SSHSession: Loading SSHPasswordAlertAccessoryView failed."});
}

TEST_F(PublicKeyTest, StandardKeysAreTriedInPairsDSAFirst) {
    makeKey(standardKey("id_rsa"), "rsa");
    std::filesystem::rename(standardKey("id_rsa"), standardKey("elsewhere"));
    makeKey(standardKey("id_dsa"), "dsa"); // refused by this server, whatever the library does
    const std::string reason = authenticate();
    EXPECT_THAT(reason, testing::StartsWith(tryingStandard("id_dsa", "no password") + "Failed."));
    EXPECT_THAT(reason, testing::EndsWith("\n" + missing("id_rsa")));

    if (libraryHas(1, 11)) {
        std::filesystem::rename(standardKey("elsewhere"), standardKey("id_rsa"));
        server().authorize(standardKey("id_rsa"));
        EXPECT_EQ(authenticate(), "");
    }
}

// The library must have been built with DSA for this; the server must be told.
TEST_F(PublicKeyTest, ADSAKeyIsAccepted) {
    const Sshd lenient({"ecdsa"}, "PubkeyAcceptedAlgorithms +ssh-dss\n");
    makeKey(standardKey("id_dsa"), "dsa");
    lenient.authorize(standardKey("id_dsa"));
    know(lenient.hostKey());
    const auto session = makeSession(lenient.port());
    EXPECT_TRUE(session->start(&error)) << summary(error) << lenient.log();
}

TEST_F(PublicKeyTest, AgentIdentities) {
    makeKey(home.directory.path("rsa"), "rsa");
    makeKey(home.directory.path("ecdsa"), "ecdsa");
    const std::string description =
        "Dravella could not make an SSH connection to " + currentUser() + "@127.0.0.1.";
    const auto agentStage = [&] {
        error = nullptr;
        const auto session = makeSession(server().port());
        EXPECT_TRUE(session->_createSocket(&error) && session->_startSession(&error));
        const bool accepted = session->_authenticateWithAgent(&error);
        EXPECT_EQ(session->mAgent != nullptr, accepted);
        session->stop();
        EXPECT_EQ(session->mAgent, nullptr);
        return accepted;
    };
    {
        const SshAgent agent({home.directory.path("ecdsa"), key()}); // the second one is accepted
        EXPECT_TRUE(agentStage()) << summary(error);
        EXPECT_EQ(error, nullptr);
    }
    const std::string refused = "libssh2ErrorDomain 0 | " + description +
                                " | SSH could not authenticate using ssh-agent. | -";
    {
        const SshAgent agent({home.directory.path("rsa")});
        EXPECT_FALSE(agentStage());
        EXPECT_EQ(summary(error), refused);
        if (libraryHas(1, 11)) {
            server().authorize(home.directory.path("rsa"));
            EXPECT_TRUE(agentStage()) << summary(error);
        }
    }
    {
        const SshAgent agent;
        EXPECT_FALSE(agentStage());
        EXPECT_EQ(summary(error), refused);
    }
    EXPECT_FALSE(agentStage()); // SSH_AUTH_SOCK is unset
    EXPECT_EQ(error->code(), LIBSSH2_ERROR_BAD_USE);
    EXPECT_EQ(error->localizedDescription(), "An error occurred in libssh2_agent_connect. (-39)");
    ::setenv("SSH_AUTH_SOCK", home.directory.path("gone").c_str(), 1);
    EXPECT_FALSE(agentStage());
    EXPECT_THAT(*error->localizedDescription(), testing::HasSubstr("libssh2_agent_connect"));
}

TEST_F(PublicKeyTest, TheResponseQuestionIsTheHostsToAsk) {
    user->answers = {AlertAnswer::FirstButton, AlertAnswer::SecondButton};
    user->typed = "1234";
    SSHSessionPasswordPanel panel;
    EXPECT_EQ(panel.responseToKeyboardPrompt("Code:"), "1234");
    EXPECT_EQ(panel.responseToKeyboardPrompt("Code:"), std::nullopt);
    ASSERT_EQ(user->shown.size(), 2U);
    EXPECT_EQ(user->shown[0].messageText, "Authenticate SSH using keybpard-interactive.");
    EXPECT_EQ(user->shown[0].informativeText, "Code:");
    EXPECT_EQ(user->shown[1].view, "alertResponseAccessoryView");
    EXPECT_TRUE(user->checkBoxStates.empty());
}
