#include "Tests/Support/ScriptedServer.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

using SSHPlatform::AlertAnswer;

namespace {

class TranscriptTest : public ScriptedServerTest {
  protected:
    // Of a `start` that fails with that code: its failure reason.
    std::string reasonOf(const std::string &script, int code,
                         std::optional<std::string> password = std::nullopt,
                         std::optional<std::string> key = std::nullopt) {
        const auto session = sessionAs(script, std::move(password), std::move(key));
        EXPECT_FALSE(session->start(nullptr));
        EXPECT_FALSE(session->start(&error));
        EXPECT_EQ(summary(error), fmt::format("libssh2ErrorDomain {} | {} | {} | -", code,
                                              description(script), why()));
        EXPECT_FALSE(session->isConnected());
        return why();
    }

    std::string why() { return error->localizedFailureReason().value_or("no reason"); }

    static std::string description(const std::string &script) {
        return "Dravella could not make an SSH connection to " + script + "@127.0.0.1.";
    }

    std::string missing(const char *name) {
        return "The standard key file [[" + home.directory.path(".ssh/") + name +
               "]] does not exist.";
    }

    // The library's own host key algorithms, one line of the transcript.
    static std::string algorithms() {
        LIBSSH2_SESSION *session = libssh2_session_init();
        const char **names = nullptr;
        const int count = libssh2_session_supported_algs(session, LIBSSH2_METHOD_HOSTKEY, &names);
        std::string line = fmt::format("{}", fmt::join(names, names + count, ", "));
        libssh2_free(session, static_cast<void *>(names));
        libssh2_session_free(session);
        return line;
    }

    static std::string lines(const Lines &all) { return fmt::format("{}\n", fmt::join(all, "\n")); }

    const std::string heading =
        "SSH could not authenticate with any of the available authentication methods.";
    const std::string noList = "SSH could not authenticate because it could not get a list of the "
                               "available authentication methods. ";
};

} // namespace

TEST_F(TranscriptTest, NothingToTry) {
    EXPECT_EQ(
        reasonOf("publickey,password", 0),
        lines({heading, "", "Supported authentication methods:", "public key exchange, password",
               "", "Failed to authenticate by public key exchange:",
               description("publickey,password"), missing("id_dsa.pub"), missing("id_rsa.pub"), "",
               "", "Supported key exchange algorithms:", algorithms(), "", "",
               "Failed to authenticate by password:", "(null)", "", ""}));
    for (const char *methods : {"hostbased", "nothing"}) // the list of the second is empty
        EXPECT_EQ(reasonOf(methods, 0, "sesame"),
                  lines({heading, "", "Supported authentication methods:", "", ""}));
}

TEST_F(TranscriptTest, AllMethodsFail) {
    makeKey(home.directory.path(".ssh/id_rsa"), "rsa", "open sesame");
    user->answers.assign(2, AlertAnswer::SecondButton); // Cancel, once for each attempt
    const std::string script = "keyboard-interactive,password,hostbased,publickey 1";
    const std::string absent = home.directory.path("absent");
    const std::string rsa = home.directory.path(".ssh/id_rsa");
    EXPECT_EQ(
        reasonOf(script, 0, "wrong", absent),
        lines({heading,
               "",
               "Supported authentication methods:",
               "public key exchange, password, keyboard-interactive",
               "",
               "Failed to authenticate by public key exchange:",
               description(script),
               "The user-specified key file [[" + absent + "]] does not exist.",
               missing("id_dsa.pub"),
               "Trying to authenticate with key files [[" + rsa + ".pub]] and [[" + rsa +
                   "]] and no password...",
               "Failed. Key unverified.",
               "Asking user for key file password...",
               "No password was given. Failing.",
               "",
               "",
               "Supported key exchange algorithms:",
               algorithms(),
               "",
               "",
               "Failed to authenticate by password:",
               description(script),
               "SSH could not authenticate using the ssh user password. (-18)",
               "",
               "",
               "Failed to authenticate by keyboard-interactive:",
               description(script),
               "SSH could not authenticate using keyboard-interactive. Authentication failed.",
               "",
               "",
               ""}));
    EXPECT_EQ(user->shown.size(), 2U);
    // The order is fixed, whatever the server's.
    const Lines attempt = {"keepalive", "key ssh-rsa", "password b'wrong'", "answers [b'wrong']"};
    Lines twice = attempt;
    twice.insert(twice.end(), attempt.begin(), attempt.end());
    EXPECT_EQ(scripted.received(), twice);
}

TEST_F(TranscriptTest, NoMethodList) {
    EXPECT_EQ(reasonOf("none", 0, "sesame"), noList + "Error 0.");
    EXPECT_EQ(reasonOf("disconnect 2 bye", -13, "sesame"), noList + "The socket was disconnected.");
    EXPECT_EQ(notices, (Lines{"2 | bye | -", "2 | bye | -"}));
}

// An agent makes the library ask for the methods once more before.
TEST_F(TranscriptTest, NoMethodListWithAnAgent) {
    const SshAgent agent;
    testing::internal::CaptureStderr();
    const std::string reason = reasonOf("disconnect 11", -13);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "libssh2_userauth_list did not return any authentication methods.\n"
              "libssh2_userauth_list did not return any authentication methods.\n");
    EXPECT_EQ(reason, noList + "The socket was disconnected.");
    EXPECT_EQ(reasonOf("none", 0, "sesame"), noList + "Error 0.");
}
