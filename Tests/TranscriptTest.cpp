#include "Tests/Support/ScriptedServer.h"

#include <fmt/format.h>

#include <regex>

namespace {

class TranscriptTest : public ScriptedServerTest {
  protected:
    std::string reasonOf(const std::string &script, int code,
                         std::optional<std::string> password = "sesame",
                         std::optional<std::string> key = std::nullopt) {
        const auto session = sessionAs(script, std::move(password), std::move(key));
        EXPECT_FALSE(session->start(&error) || session->isConnected());
        std::string reason = error->localizedFailureReason().value_or("no reason");
        EXPECT_EQ(summary(error), fmt::format("libssh2ErrorDomain {} | Dravella could not make an "
                                              "SSH connection to {}@127.0.0.1. | {} | -",
                                              code, script, reason));
        EXPECT_FALSE(session->start(nullptr));
        return reason;
    }

    const std::string noMethod =
        "SSH could not authenticate with any of the available authentication methods.\n\n"
        "Supported authentication methods:\n";
    const std::string noList = "SSH could not authenticate because it could not get a list of the "
                               "available authentication methods. ";
};

} // namespace

TEST_F(TranscriptTest, NothingToTry) {
    EXPECT_EQ(reasonOf("password", 0, std::nullopt),
              noMethod + "password\n\nFailed to authenticate by password:\n(null)\n\n\n");
    for (const char *methods : {"hostbased", "nothing"}) // the list of the second is empty
        EXPECT_EQ(reasonOf(methods, 0), noMethod + "\n\n");
}

TEST_F(TranscriptTest, AllMethodsFailInTheirOrder) {
    makeKey(home.directory.path(".ssh/id_rsa"), "rsa", "open sesame");
    user->answers.assign(2, SSHPlatform::AlertAnswer::SecondButton); // Cancel
    const std::string script = "keyboard-interactive,password,hostbased,publickey 1";
    const std::regex algorithms(R"(((ecdsa|ssh|rsa)-[-\w@.]+(, |\n)){4,})");
    const std::string reason = reasonOf(script, 0, "wrong", "~/absent");
    EXPECT_EQ(std::regex_replace(reason, algorithms, "ALGORITHMS\n"),
              noMethod +
                  fmt::format(
                      "public key exchange, password, keyboard-interactive\n\n"
                      "Failed to authenticate by public key exchange:\n{what}\n"
                      "The user-specified key file [[{home}/absent]] does not exist.\n"
                      "The standard key file [[{home}/.ssh/id_dsa.pub]] does not exist.\n"
                      "Trying to authenticate with key files [[{home}/.ssh/id_rsa.pub]] and "
                      "[[{home}/.ssh/id_rsa]] and no password...\nFailed. Key unverified.\n"
                      "Asking user for key file password...\nNo password was given. Failing.\n\n\n"
                      "Supported key exchange algorithms:\nALGORITHMS\n\n\n"
                      "Failed to authenticate by password:\n{what}\n"
                      "SSH could not authenticate using the ssh user password. (-18)\n\n\n"
                      "Failed to authenticate by keyboard-interactive:\n{what}\n"
                      "SSH could not authenticate using keyboard-interactive. Authentication "
                      "failed.\n\n\n\n",
                      fmt::arg("what", *error->localizedDescription()),
                      fmt::arg("home", home.directory.path())));
    Lines twice = {"keepalive", "key ssh-rsa", "password b'wrong'", "answers [b'wrong']"};
    twice.insert(twice.end(), {twice[0], twice[1], twice[2], twice[3]});
    EXPECT_EQ(scripted.received(), twice);
}

// An agent makes the library ask for the methods once more before.
TEST_F(TranscriptTest, NoMethodList) {
    std::unique_ptr<SshAgent> agent;
    for (const std::string said :
         {"", "libssh2_userauth_list did not return any authentication methods.\n"}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(reasonOf("none", 0), noList + "Error 0.");
        EXPECT_EQ(reasonOf("disconnect 2 bye", -13), noList + "The socket was disconnected.");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), said + said + said + said);
        agent = std::make_unique<SshAgent>();
    }
    EXPECT_EQ(notices, Lines(4, "2 | bye | -"));
}

TEST(ErrorTest, SentencesAndWhatIsLeftOut) {
    using Engine = SSHSession_libssh2;
    for (const auto &[code, sentence] : std::map<int, const char *>{
             {-1, "The socket is invalid."},
             {-2, "Error -2."},
             {-3, "Unable to send banner to remote host."},
             {-5, "Encryption key exchange with the remote host failed."},
             {-7, "Unable to send data on socket."},
             {-9, "The socket timed out."},
             {-14, "An invalid SSH protocol response was received on the socket."},
             {-37, "Marked for non-blocking I/O but the call would block."}})
        EXPECT_EQ(Engine::_stringForErrorCode(code), sentence);
    // What follows a null text is left out.
    EXPECT_EQ(Engine::_errorWithDescription("what", std::nullopt, 1)->userInfo().size(), 1U);
    EXPECT_TRUE(Engine::_errorWithDescription(std::nullopt, "why", 1)->userInfo().empty());
    EXPECT_EQ(summary(Engine::_errorFromFunction(nullptr, "libssh2_x", -13)), // no live session
              "libssh2ErrorDomain -13 | An error occurred in libssh2_x. (-13) | The socket was "
              "disconnected. | The socket was disconnected.");
}
