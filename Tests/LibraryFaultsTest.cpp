// What CMake/libssh2-patches mends: each of those patches names the test here that fails without
// it. Leaks and reads beyond the heap are seen as well, and better, with the address sanitizer.
#include "Tests/Support/ScriptedServer.h"

#include <SSHSession/SSHSession.h>

using SSHPlatform::AlertAnswer;

namespace {

class LibraryFaultsTest : public ScriptedServerTest {
  protected:
    void SetUp() override {
#ifndef SSHSESSION_MENDED_LIBSSH2
        GTEST_SKIP() << "the system's libssh2 has these faults";
#endif
    }
};

} // namespace

TEST_F(LibraryFaultsTest, NamesOfOneOrTwoLettersAreKnown) {
    const Sshd other;
    for (const std::string name : {"0", "00"}) { // numbers that stand for this machine
        SCOPED_TRACE(name);
        const auto connects = [&](const Sshd &sshd) {
            const auto session =
                SSHSession::sessionWithHost(name, sshd.port(), currentUser(), std::nullopt, key());
            user->shown.clear();
            const bool connected = session->start(&error);
            session->stop();
            return connected;
        };
        other.authorize(key());
        home.directory.write(".ssh/known_hosts", name + " " + server().hostKey() + "\n");
        EXPECT_TRUE(connects(server()));
        EXPECT_EQ(user->shown, Lines());
        user->answers = {AlertAnswer::FirstButton};
        EXPECT_TRUE(connects(other));
        EXPECT_THAT(user->shown,
                    testing::ElementsAre(testing::StartsWith("Critical: "))); // it has changed
        EXPECT_TRUE(connects(server()) && connects(other)); // the file holds both keys
    }
}
