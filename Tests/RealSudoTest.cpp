// Against sudo itself, for a user who exists as long as the test.
#include "Tests/Support/SessionTest.h"

#include <fmt/format.h>

#include <unistd.h>

#include <fstream>
#include <iostream>

namespace fs = std::filesystem;

namespace {

class TemporaryUser {
  public:
    TemporaryUser() {
        startShellWith("");
        // Tests that run side by side take turns with the user database.
        if (!eventually([&] {
                return runProcess(
                           {"useradd", "-M", "-d", home.path(), "-s", home.path("shell"), name})
                           .status == 0;
            }))
            throw std::runtime_error("cannot add the user " + name);
        fs::permissions(home.path(), fs::perms(0755));
    }
    TemporaryUser(const TemporaryUser &) = delete;
    TemporaryUser &operator=(const TemporaryUser &) = delete;
    ~TemporaryUser() {
        // Not while the last of the user's processes is going away.
        EXPECT_TRUE(eventually([&] { return runProcess({"userdel", name}).status == 0; }));
        for (const std::string &file : {rules, "/run/sudo/ts/" + name})
            fs::remove(file);
    }

    void setPassword(const std::string &password) const {
        if (password.empty())
            require({"passwd", "-q", "-d", name});
        else
            require({"chpasswd"}, name + ":" + password + "\n");
    }

    // What the user's shell does before anything else.
    void startShellWith(const std::string &text) const {
        home.write("shell", "#!/bin/sh\n" + text + "\nexec /bin/bash --norc \"$@\"\n",
                   fs::perms(0755));
    }

    // Replaces the user's rule in sudoers.
    void allow(const std::string &rule) const {
        fs::remove(rules);
        std::ofstream(rules) << fmt::format(
            "Defaults:{0} lecture=never, timestamp_timeout=0, !mail_badpass\n{0} ALL={1}\n", name,
            rule);
        fs::permissions(rules, fs::perms(0440));
    }

    const TemporaryDirectory home;
    const std::string name = "sshs" + std::to_string(::getpid());

  private:
    const std::string rules = "/etc/sudoers.d/" + name;
};

class RealSudoTest : public SessionTest {
  protected:
    void SetUp() override {
        if (!isRoot() || !fs::exists("/usr/bin/sudo"))
            GTEST_SKIP() << "*** sudo is not tested: this takes root and /usr/bin/sudo ***";
        admin = std::make_unique<TemporaryUser>();
        admin->setPassword("sesame");
        admin->allow("(ALL) ALL");
        makeKey(home.directory.path("client"), "ed25519");
        const std::string keys =
            admin->home.write("keys", contentOf(home.directory.path("client.pub")));
        sshd = std::make_unique<Sshd>(std::vector<std::string>{"ecdsa"},
                                      "AuthorizedKeysCommandUser root\nAuthorizedKeysCommand "
                                      "/usr/bin/cat " +
                                          keys + "\n");
        know(sshd->hostKey());
    }

    void TearDown() override {
        SessionTest::TearDown();
        for (const std::string &line : log)
            EXPECT_EQ(line.find("sesame"), std::string::npos);
        if (HasFailure() && sshd)
            std::cerr << "--- sshd's log:\n" << sshd->log();
    }

    // Of a command that runs as root.
    std::string result(const std::string &text, const std::string &password = "sesame",
                       const std::string &input = "") {
        if (!session || !session->isConnected()) {
            session =
                makeSession(sshd->port(), std::nullopt, home.directory.path("client"), admin->name);
            EXPECT_TRUE(session->start(&error)) << summary(error);
        }
        return resultOf(*session, text, password, input);
    }

    std::unique_ptr<TemporaryUser> admin;
    std::unique_ptr<Sshd> sshd;
    std::shared_ptr<TestSession> session;
    const std::string couldNot =
        "libssh2ErrorDomain 0 | Dravella could not execute the SSH command. | ";
    const std::string notAccepted =
        couldNot + "The SSH user was not able to use sudo. The password was not accepted. | -";
};

} // namespace

TEST_F(RealSudoTest, Commands) {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte)
        bytes.push_back(static_cast<char>(byte));
    const std::string binary = admin->home.write("binary", bytes);
    // Once sudo has been seen to accept, a marker is a text like any other.
    const std::string markers = "printf '#SSHSessionEnterPassword^' >&2; printf "
                                "'#SSHSessionSudoSuccess^\\n'; cat";
    EXPECT_EQ(result("id -u; exit 3"), "3 (null) | 0\n | ");
    EXPECT_EQ(result(R"(printf %s "a  'b' c"; echo "e r r" >&2)"), "0 (null) | a  'b' c | e r r\n");
    EXPECT_EQ(result("cat; echo done", "sesame", bytes), "0 (null) | " + bytes + "done\n | ");
    EXPECT_EQ(result("cat " + binary + "; cat " + binary + " >&2"),
              "0 (null) | " + bytes + " | " + bytes);
    EXPECT_EQ(result(markers, "sesame", "input"),
              "0 (null) | #SSHSessionSudoSuccess^\ninput | #SSHSessionEnterPassword^");
    for (const char *noPassword : {"", "sesame"}) {
        admin->allow("(ALL) NOPASSWD: ALL");
        EXPECT_EQ(result("cat", noPassword, "input"), "0 (null) | input | ");
    }
    admin->allow("(ALL) ALL");
    admin->startShellWith("echo hello >&2"); // goes with the prompt
    EXPECT_EQ(result("echo out"), "0 (null) | out\n | ");
}

TEST_F(RealSudoTest, Passwords) {
    for (const char *password : {"p\u00e4\u20ac \"'$HOME`id`\\", "#SSHSessionEnterPassword^"}) {
        admin->setPassword(password);
        EXPECT_EQ(result("cat", password, "input"), "0 (null) | input | ");
    }
    EXPECT_EQ(result("cat", "wrong"), notAccepted); // three times
    admin->setPassword("");
    EXPECT_EQ(result("id -u", ""), "0 (null) | 0\n | ");
}

TEST_F(RealSudoTest, FiftyMegabytesOnBothStreams) {
    const std::string text = "yes sshsession | head -c 52428800";
    const std::string stream = require({"/bin/sh", "-c", text});
    const std::string both = result(text + " | tee /dev/stderr");
    EXPECT_TRUE(both == "0 (null) | " + stream + " | " + stream) << both.substr(0, 500);
}
