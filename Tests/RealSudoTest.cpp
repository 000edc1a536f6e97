// Against sudo itself, for a user who exists as long as the test.
#include "Tests/Support/SessionTest.h"

#include <fmt/format.h>

#include <unistd.h>

#include <fstream>

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

    void allow(const std::string &rule) const {
        std::ofstream(rules) << fmt::format(
            "Defaults:{0} lecture=never, timestamp_timeout=0, !mail_badpass\n{0} ALL={1}\n", name,
            rule);
        fs::permissions(rules, fs::perms(0440));
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
    EXPECT_EQ(resultOf(*session, "cat", "wrong"), // three times
              "libssh2ErrorDomain 0 | Dravella could not execute the SSH command. | The SSH user "
              "was not able to use sudo. The password was not accepted. | -");
    EXPECT_EQ(log, Lines());
}
