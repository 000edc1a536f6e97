// A server that is gone without a word: its link is cut, and nobody tells the client.
#include "Tests/Support/SessionTest.h"

#include <SSHSession/RunLoop.h>

#include <fmt/format.h>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>

#include <future>

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

// Client and server in networks of their own, which are gone with the last that uses them.
class VanishedServerTest : public SessionTest {
  protected:
    void SetUp() override {
        if (!isRoot() || runProcess({"ip", "-V"}).status != 0 || ::unshare(CLONE_NEWNET) != 0)
            GTEST_SKIP() << "*** vanished servers are not tested: this takes root, ip(8) and the "
                            "right to make a network namespace ***";
        require({"ip", "link", "set", "lo", "up"});
        require({"ip", "link", "add", "client", "type", "veth", "peer", "name", "server"});
        setUpLink("server", "192.0.2.2/24");
        mServer = std::make_unique<Sshd>(Lines{"ecdsa"}, "ListenAddress 192.0.2.2\n");
        mServer->authorize(key());
        know(mServer->hostKey(), "192.0.2.2");
        mServersNetwork = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(::unshare(CLONE_NEWNET), 0);
        atServer({"link", "set", "client", "netns", std::to_string(::getpid())});
        setUpLink("client", "192.0.2.1/24");
    }

    void TearDown() override {
        if (mServersNetwork >= 0)
            ::close(mServersNetwork);
        SessionTest::TearDown();
    }

    void atServer(Lines words) const {
        const Lines enter = {
            "nsenter", fmt::format("--net=/proc/{}/fd/{}", ::getpid(), mServersNetwork), "ip"};
        words.insert(words.begin(), enter.begin(), enter.end());
        require(words);
    }

    std::shared_ptr<TestSession> connectedOverLink() {
        auto session = std::make_shared<TestSession>("192.0.2.2", mServer->port(), currentUser(),
                                                     SSHPlatform::Secret::none(), key());
        EXPECT_TRUE(session->start(&error)) << summary(error);
        return session;
    }

  private:
    static void setUpLink(const std::string &name, const std::string &address) {
        require({"ip", "address", "add", address, "dev", name});
        require({"ip", "link", "set", name, "up"});
    }

    int mServersNetwork = -1;
};

} // namespace

// Its silence is an error after 30 s of waiting for a channel, or after the two minutes that the
// system takes to give a connection up. The bound is there against hanging.
TEST_F(VanishedServerTest, IsNoticed) {
    const std::string silent = home.directory.path("silent");
    const std::string busy = home.directory.path("busy");
    Clock::time_point cut;
    const auto begin = [&](const std::shared_ptr<TestSession> &session, const std::string &text,
                           const std::string &input = "") {
        return std::async(std::launch::async, [&cut, session, text, input] {
            const std::string result = resultOf(*session, text, std::nullopt, input);
            fmt::print("{} s after the cut: \"{}\": {}\n", (Clock::now() - cut) / 1s, text, result);
            return result;
        });
    };
    std::vector<std::shared_ptr<TestSession>> sessions(4);
    for (auto &session : sessions)
        session = connectedOverLink();
    const auto &idle = sessions[3];
    // Both end with the server. The second takes some 3 MB a second, so that there are always bytes
    // on their way.
    auto silence = begin(sessions[0], "touch " + silent + "; exec cat");
    auto sending = begin(sessions[1],
                         "while head -c 32768 | grep -q x; do touch " + busy + "; sleep .01; done",
                         std::string(200 << 20, 'x'));
    EXPECT_TRUE(eventually([&] { return fs::exists(silent) && fs::exists(busy); }));
    atServer({"link", "set", "server", "down"});
    cut = Clock::now();
    auto next = begin(sessions[2], "echo soon");
    // The idle one's keepalives fail, but nobody listens for that: the next command does.
    pollfd socket = {idle->connection()->socket(), 0, 0};
    const auto isOver = [&](const auto &result) {
        return result.wait_for(0s) == std::future_status::ready;
    };
    while (Clock::now() < cut + 210s &&
           !(isOver(silence) && isOver(sending) && isOver(next) && ::poll(&socket, 1, 0) != 0))
        SSHPlatform::RunLoop::main()->runFor(100ms);
    for (const auto &session : sessions)
        session->cancel();
    EXPECT_TRUE(idle->isConnected());
    const std::string readFailure =
        "libssh2ErrorDomain -43 | An error occurred in libssh2_channel_read. (-43) | Error -43. "
        "transport read | Error -43. transport read";
    EXPECT_EQ(silence.get(), readFailure);
    EXPECT_EQ(sending.get(), readFailure);
    EXPECT_EQ(next.get(),
              "libssh2ErrorDomain -9 | Dravella lost the connection to the SSH server " +
                  currentUser() + "@192.0.2.2. | The socket timed out. | -");
    EXPECT_EQ(begin(idle, "echo late").get(),
              "libssh2ErrorDomain -7 | An error occurred in libssh2_channel_open_session. (-7) | "
              "Unable to send data on socket. Unable to send channel-open request | Unable to send "
              "data on socket. Unable to send channel-open request");
}
