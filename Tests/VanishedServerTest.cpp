// A server that is gone without a word: its link is cut, and nobody tells the client.
#include "Tests/Support/SessionTest.h"

#include <SSHSession/RunLoop.h>

#include <fmt/format.h>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>

#include <future>
#include <iostream>

using namespace std::chrono_literals;
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
        sshd = std::make_unique<Sshd>(Lines{"ecdsa"}, "ListenAddress 192.0.2.2\n");
        sshd->authorize(key());
        know(sshd->hostKey(), "192.0.2.2");
        mServersNetwork = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(::unshare(CLONE_NEWNET), 0);
        atServer({"link", "set", "client", "netns", std::to_string(::getpid())});
        setUpLink("client", "192.0.2.1/24");
    }

    void TearDown() override {
        if (mServersNetwork >= 0)
            ::close(mServersNetwork);
        SessionTest::TearDown();
        if (HasFailure() && sshd)
            std::cerr << "--- sshd's log:\n" << sshd->log();
    }

    void atServer(Lines words) const {
        const Lines enter = {
            "nsenter", fmt::format("--net=/proc/{}/fd/{}", ::getpid(), mServersNetwork), "ip"};
        words.insert(words.begin(), enter.begin(), enter.end());
        require(words);
    }

    std::shared_ptr<TestSession> connectedOverLink() {
        auto session = std::make_shared<TestSession>("192.0.2.2", sshd->port(), currentUser(),
                                                     std::nullopt, key());
        EXPECT_TRUE(session->start(&error)) << summary(error);
        return session;
    }

    std::unique_ptr<Sshd> sshd;

  private:
    static void setUpLink(const std::string &name, const std::string &address) {
        require({"ip", "address", "add", address, "dev", name});
        require({"ip", "link", "set", name, "up"});
    }

    int mServersNetwork = -1;
};

} // namespace

TEST_F(VanishedServerTest, IsNoticed) {
    const std::string silent = home.directory.path("silent");
    const std::string busy = home.directory.path("busy");
    const std::string input(64UL << 20, 'x');
    Clock::time_point cut;
    const auto timed = [&](const std::shared_ptr<TestSession> &session, const std::string &text,
                           const std::string &given = "") {
        return std::async(std::launch::async, [&, session, text, given] {
            const std::string result = resultOf(*session, text, std::nullopt, given);
            return fmt::format("{} s: {}", (Clock::now() - cut) / 1s, result);
        });
    };
    // These end with their server: a silent command, one that takes 3 MB of input a second.
    auto silence = timed(connectedOverLink(), "touch " + silent + "; exec cat");
    auto sending =
        timed(connectedOverLink(),
              "while head -c 32768 | grep -q x; do touch " + busy + "; sleep .01; done", input);
    const auto asked = connectedOverLink();
    const auto idle = connectedOverLink();
    EXPECT_TRUE(eventually(
        [&] { return std::filesystem::exists(silent) && std::filesystem::exists(busy); }));
    atServer({"link", "set", "server", "down"});
    cut = Clock::now();
    auto next = timed(asked, "true");
    // An idle one sends keepalives, whose failure nobody hears of: the next command does.
    pollfd socket = {idle->connection()->socket(), 0, 0};
    while (::poll(&socket, 1, 0) == 0 && Clock::now() < cut + 210s)
        SSHPlatform::RunLoop::main()->runFor(100ms);
    fmt::print("idle: given up after {} s\n", (Clock::now() - cut) / 1s);
    auto late = timed(idle, "true");
    fmt::print("late: {}\n", late.get());
    fmt::print("silence: {}\nsending: {}\nnext: {}\n", silence.get(), sending.get(), next.get());
}
