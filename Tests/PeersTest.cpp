// Sessions with the servers that are in use.
#include "Tests/Support/Peer.h"
#include "Tests/Support/SessionTest.h"
#include "Tests/Support/Wrapped.h"

#include <csignal>
#include <iostream>

namespace {

struct Case {
    std::string name;
    bool hasPassword;
    // Of a session as it is by default: the code of its failure, or 0.
    std::int64_t plainCode;
};

void PrintTo(const Case &each, std::ostream *stream) {
    *stream << each.name;
}

class PeersTest : public SessionTest,
                  public testing::WithParamInterface<Case>,
                  protected SSHSessionDelegate {
  protected:
    void sshSessionDisconnected(SSHSession & /*session*/,
                                const SSHErrorRef &why) noexcept override {
        told.push_back(summary(why));
    }

    Lines told;
};

} // namespace

TEST_P(PeersTest, AWatchedSession) {
    if (!Peer::isThere(GetParam().name))
        GTEST_SKIP() << "*** " << GetParam().name << " is not installed: nothing is tested ***";
    const Peer peer(GetParam().name, key());
    know(peer.hostKey());
    know(peer.hostKey(), "[127.0.0.1]:" + std::to_string(peer.port()));
    const auto session = [&](const std::optional<std::string> &password) {
        return makeSession(peer.port(), password, password ? std::nullopt : std::optional(key()));
    };
    const std::string text = "cat; echo e >&2; sleep 0.3; exit 3";
    const std::string done = "3 (null) | data\n | e\n";

    // Most hang up at its keepalive before the log-in.
    const bool isStarted = session(std::nullopt)->start(&error);
    EXPECT_EQ(isStarted ? 0 : error->code(), GetParam().plainCode) << summary(error);

    options = SSHSessionOptions::recommended();
    if (GetParam().hasPassword) {
        const auto other = session("sesame");
        EXPECT_TRUE(other->start(&error)) << summary(error);
        EXPECT_EQ(resultOf(*other, text, {}, "data\n"), done);
        other->stop();
        EXPECT_TRUE(other->isIdle());
    }
    const auto watched = session(std::nullopt);
    watched->setDelegate(this);
    watched->keepAliveInterval = std::chrono::milliseconds(400);
    watched->attendInterval = std::chrono::milliseconds(10);
    ASSERT_TRUE(watched->start(&error)) << summary(error);
    // More than a server may leave unanswered, before the first command and after it.
    for (const char *when : {"before", "after"}) {
        wrapped().inject();
        EXPECT_TRUE(
            eventuallyServing([] { return wrapped().calls()["libssh2_keepalive_send"] >= 4; }));
        EXPECT_EQ(resultOf(*watched, text, {}, "data\n"), done) << when;
        EXPECT_EQ(wrapped().calls()["libssh2_channel_send_eof"], 1);
    }
    const auto command = makeCommand("echo $PPID");
    ASSERT_TRUE(watched->execute(command, &error)) << summary(error);
    EXPECT_EQ(told, Lines());
    ::kill(std::stoi(std::string(command->stdoutData()->view())), SIGKILL);
    EXPECT_TRUE(eventuallyServing([&] { return watched->isIdle(); }));
    EXPECT_THAT(told, testing::ElementsAre(testing::HasSubstr(
                          " | The connection ended while the session was idle. | ")));
    if (HasFailure())
        std::cerr << "--- the log of " << GetParam().name << ":\n" << peer.log();
}

INSTANTIATE_TEST_SUITE_P(Of, PeersTest,
                         testing::Values(Case{"OpenSSH", false, 0}, Case{"Dropbear", false, -43},
                                         Case{"libssh", true, -43}, Case{"Go", true, -43},
                                         Case{"AsyncSSH", true, -13}),
                         [](const auto &each) { return each.param.name; });
