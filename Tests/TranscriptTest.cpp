#include "Tests/Support/ScriptedServer.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace {

class TranscriptTest : public ScriptedServerTest {
  protected:
    // The failure reason of a `start` that fails with that code.
    std::string reasonOf(const std::string &script, int code,
                         std::optional<std::string> password = "sesame",
                         std::optional<std::string> key = std::nullopt) {
        const auto session = sessionAs(script, std::move(password), std::move(key));
        EXPECT_FALSE(session->start(&error) || session->isConnected());
        std::string reason = error->localizedFailureReason().value_or("no reason");
        EXPECT_EQ(summary(error), fmt::format("libssh2ErrorDomain {} | {} | {} | -", code,
                                              description(script), reason));
        EXPECT_FALSE(session->start(nullptr));
        return reason;
    }

    static std::string description(const std::string &script) {
        return "Dravella could not make an SSH connection to " + script + "@127.0.0.1.";
    }

    static std::string libraryAlgorithms() {
        LIBSSH2_SESSION *session = libssh2_session_init();
        const char **names = nullptr;
        const int count = libssh2_session_supported_algs(session, LIBSSH2_METHOD_HOSTKEY, &names);
        std::string line = fmt::format("{}", fmt::join(names, names + count, ", "));
        libssh2_free(session, static_cast<void *>(names));
        libssh2_session_free(session);
        return line;
    }

    // Fills in what differs from one machine to the next.
    std::string filled(const char *transcript, const std::string &script) const {
        return "SSH could not authenticate with any of the available authentication methods.\n\n"
               "Supported authentication methods:\n" +
               fmt::format(fmt::runtime(transcript), fmt::arg("what", description(script)),
                           fmt::arg("home", home.directory.path()),
                           fmt::arg("algorithms", libraryAlgorithms()));
    }

    const std::string noList = "SSH could not authenticate because it could not get a list of the "
                               "available authentication methods. ";
};

} // namespace

TEST_F(TranscriptTest, NothingToTry) {
    EXPECT_EQ(reasonOf("publickey,password", 0, std::nullopt),
              filled("public key exchange, password\n\n"
                     "Failed to authenticate by public key exchange:\n{what}\n"
                     "The standard key file [[{home}/.ssh/id_dsa.pub]] does not exist.\n"
                     "The standard key file [[{home}/.ssh/id_rsa.pub]] does not exist.\n\n\n"
                     "Supported key exchange algorithms:\n{algorithms}\n\n\n"
                     "Failed to authenticate by password:\n(null)\n\n\n",
                     "publickey,password"));
    for (const char *methods : {"hostbased", "nothing"}) // the list of the second is empty
        EXPECT_EQ(reasonOf(methods, 0), filled("\n\n", methods));
}

TEST_F(TranscriptTest, AllMethodsFailInTheirOrder) {
    makeKey(home.directory.path(".ssh/id_rsa"), "rsa", "open sesame");
    user->answers.assign(2, SSHPlatform::AlertAnswer::SecondButton); // Cancel
    const std::string script = "keyboard-interactive,password,hostbased,publickey 1";
    EXPECT_EQ(reasonOf(script, 0, "wrong", "~/absent"),
              filled("public key exchange, password, keyboard-interactive\n\n"
                     "Failed to authenticate by public key exchange:\n{what}\n"
                     "The user-specified key file [[{home}/absent]] does not exist.\n"
                     "The standard key file [[{home}/.ssh/id_dsa.pub]] does not exist.\n"
                     "Trying to authenticate with key files [[{home}/.ssh/id_rsa.pub]] and "
                     "[[{home}/.ssh/id_rsa]] and no password...\nFailed. Key unverified.\n"
                     "Asking user for key file password...\nNo password was given. Failing.\n\n\n"
                     "Supported key exchange algorithms:\n{algorithms}\n\n\n"
                     "Failed to authenticate by password:\n{what}\n"
                     "SSH could not authenticate using the ssh user password. (-18)\n\n\n"
                     "Failed to authenticate by keyboard-interactive:\n{what}\n"
                     "SSH could not authenticate using keyboard-interactive. Authentication "
                     "failed.\n\n\n\n",
                     script));
    EXPECT_EQ(user->shown.size(), 2U);
    const Lines once = {"keepalive", "key ssh-rsa", "password b'wrong'", "answers [b'wrong']"};
    Lines twice = once;
    twice.insert(twice.end(), once.begin(), once.end());
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
