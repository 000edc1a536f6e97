// Against sudo itself, for a user who exists as long as the test.
#include "Tests/Support/SessionTest.h"

#include <SSHSession/SSHDoctor.h>

#include <fmt/format.h>

#include <unistd.h>

#include <fstream>

using namespace std::string_literals;
namespace fs = std::filesystem;

namespace {

class RealSudoTest : public SessionTest {
  protected:
    void SetUp() override {
        if (!isRoot() || !fs::exists("/usr/bin/sudo"))
            GTEST_SKIP() << "*** sudo is not tested: this takes root and /usr/bin/sudo ***";
        // Programs that run side by side take turns with the user database.
        const Lines add = {"useradd", "-M", "-d", "/", "-s", "/bin/sh", name};
        ASSERT_TRUE(eventually([&] { return runProcess(add).status == 0; }));
        require({"chpasswd"}, name + ":" + password + "\n");
        mServer = std::make_unique<Sshd>(Lines{"ecdsa"}, "AuthorizedKeysCommandUser root\n"
                                                         "AuthorizedKeysCommand /usr/bin/cat " +
                                                             key() + ".pub\n");
        know(mServer->hostKey());
    }

    void TearDown() override {
        SessionTest::TearDown();
        if (IsSkipped())
            return;
        // Not while the last of the user's processes is going away.
        EXPECT_TRUE(eventually([&] { return runProcess({"userdel", name}).status == 0; }));
        for (const std::string &file : {rules, "/run/sudo/ts/" + name})
            fs::remove(file);
    }

    void allow(const std::string &rule, const std::string &more = "") const {
        std::ofstream(rules) << fmt::format(
            "Defaults:{0} lecture=never, timestamp_timeout=0, !mail_badpass{2}\n{0} ALL={1}\n",
            name, rule, more);
        fs::permissions(rules, fs::perms(0440));
    }

    // A shell that does this first; "$2" is the command.
    std::string shell(const std::string &script) {
        fs::permissions(home.directory.path(), fs::perms(0755));
        const std::string path = home.directory.write("shell", "#!/bin/sh\n" + script);
        fs::permissions(path, fs::perms(0755));
        return path;
    }

    const std::string name = "sshs" + std::to_string(::getpid());
    const std::string password = "p\u00e4\u20ac \"'$HOME`id`\\";
    const std::string rules = "/etc/sudoers.d/" + name;
};

} // namespace

TEST_F(RealSudoTest, Commands) {
    auto session = makeSession(mServer->port(), std::nullopt, key(), name);
    ASSERT_TRUE(session->start(&error)) << summary(error);
    allow("(ALL) NOPASSWD: ALL");
    EXPECT_EQ(resultOf(*session, "id -u; cat", password, "input"), "0 (null) | 0\ninput | ");
    allow("(ALL) ALL");
    EXPECT_EQ(
        resultOf(*session, R"(id -u; printf %s "a  'b' c"; echo "e r r" >&2; exit 3)", password),
        "3 (null) | 0\na  'b' c | e r r\n");
    std::string bytes(50 << 20, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i + i / 256);
    EXPECT_TRUE(resultOf(*session, "tee /dev/stderr", password, bytes) ==
                "0 (null) | " + bytes + " | " + bytes);
    // What sudo and its shell say is not the command's, nor does sudo read the command's input.
    const auto flowing = makeCommand("cat; echo e >&2");
    flowing->setAdminPassword(password);
    flowing->setStdinSource([left = std::string("input")](char *room, std::size_t) mutable {
        return std::exchange(left, "").copy(room, 5);
    });
    std::string heard;
    flowing->setOutputSink([&](auto, std::string_view piece) {
        heard += piece;
        return piece.size();
    });
    EXPECT_TRUE(session->execute(flowing, &error)) << summary(error);
    EXPECT_EQ(heard, "inpute\n");
    EXPECT_EQ(resultOf(*session, "cat", "wrong"), // three times
              "libssh2ErrorDomain 0 | Dravella could not execute the SSH command. | The SSH user "
              "was not able to use sudo. The password was not accepted. | -");
    EXPECT_EQ(log, Lines());
}

TEST_F(RealSudoTest, FollowedToItsEnd) {
    options.followsSudo = true;
    const auto session = makeSession(mServer->port(), std::nullopt, key(), name);
    const auto result = [&](const std::string &shell, const std::string &command,
                            const std::string &secret, const std::string &input = "") {
        require({"usermod", "-s", shell, name});
        session->stop(); // the server looks at the log-in
        EXPECT_TRUE(session->start(&error)) << summary(error);
        return resultOf(*session, command, secret, input);
    };
    const auto couldNot = [](const std::string &why) {
        return "libssh2ErrorDomain 0 | Dravella could not execute the SSH command. | " + why +
               " | -";
    };
    const std::string odd =
        R"(v="a'b"; printf '%s|' "$v" `echo "\$v"` \\ 'a\b\\' \! 'hi!x' '100%' "";)"
        "\ncat <<E\n \\$v $v \"'\\\\\nE\nprintf %s ~root 'x\ny!'; exit 3";
    allow("(ALL) ALL");
    for (const std::string &each :
         {"/bin/sh"s, "/bin/bash"s, "/bin/csh"s, "/usr/bin/fish"s, "/bin/zsh"s,
          shell("printf Welcome; printf hm >&2; exec /bin/sh \"$@\"\n"),
          shell("printf %s \"$2\" >&2; sleep 0.3; exec /bin/sh \"$@\"\n")}) { // as "set -v" does
        if (!fs::exists(each)) {
            GTEST_LOG_(WARNING) << "*** not tested, since it is not there: " << each << " ***";
            continue;
        }
        SCOPED_TRACE(each);
        EXPECT_EQ(result(each, odd, password),
                  fmt::format("3 (null) | {} | ", runProcess({"/bin/sh", "-c", odd}).output));
        EXPECT_EQ(result(each, "id -u; cat", password, "in!put"), "0 (null) | 0\nin!put | ");
    }
    EXPECT_EQ(result("/bin/sh", "-v\nid -u", password),
              "0 (null) | 0\n | /bin/sh: 1: eval: -v: not found\n");
    EXPECT_EQ(result("/bin/sh", "-v", password),
              "127 (null) |  | /bin/sh: 1: eval: -v: not found\n");
    EXPECT_EQ(result("/bin/sh", "fi", password),
              "2 (null) |  | /bin/sh: 1: eval: Syntax error: \"fi\" unexpected\n");
    EXPECT_EQ(result("/bin/sh", "cat", "wrong"), couldNot("sudo: 3 incorrect password attempts"));
    allow("(ALL) ALL", ", passwd_tries=1, authfail_message=\"%d falsches Passwort\"");
    EXPECT_EQ(result("/bin/sh", "cat", "wrong"), couldNot("sudo: 1 falsches Passwort"));
    fs::remove(rules);
    EXPECT_EQ(result("/bin/sh", "cat", password), couldNot(name + " is not in the sudoers file."));
    EXPECT_EQ(result(shell("exec /bin/sh -c \"/usr/bin/no${2#/usr/bin/}\"\n"), "cat", password),
              couldNot("/bin/sh: 1: /usr/bin/nosudo: not found"));
}

TEST_F(RealSudoTest, AnExaminationTriesThePasswordOnce) {
    const auto lastLine = [&](const std::string &secret) {
        SSHDoctor doctor("127.0.0.1", mServer->port(), name, SSHPlatform::Secret::none(), key(),
                         SSHSessionOptions::recommended(), SSHPlatform::Secret::of(secret));
        std::string text;
        doctor.examine([&](const SSHDoctorLine &line) { text = line.step + ": " + line.text; });
        return text;
    };
    allow("(ALL) ALL");
    EXPECT_EQ(lastLine(password),
              "sudo: It lets the user run commands with the password that was given.");
    EXPECT_THAT(lastLine("wrong"), testing::HasSubstr("\"sudo: 1 incorrect password attempt\""));
    fs::remove(rules);
    EXPECT_THAT(lastLine(password), testing::HasSubstr("is not in the sudoers file"));
}
