// Two threads, one session: whoever comes in between, no secret goes astray and nobody hangs.
#include "Tests/Support/Relay.h"
#include "Tests/Support/ScriptedServer.h"
#include "Tests/Support/Wrapped.h"

#include <asio/ip/tcp.hpp>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <SSHSession/RunLoop.h>

#include <fcntl.h>

#include <future>
#include <thread>

using asio::ip::tcp;
using SSHPlatform::AlertAnswer;
using testing::HasSubstr;

namespace {

const std::string stopped = "The session was stopped while it was connecting.";
const std::string notConnected = "libssh2ErrorDomain 0 | Dravella could not execute the SSH "
                                 "command. | The session is not connected. | -";

// Does something on another thread, and waits for it, at one of the notices of a start.
struct Intruder final : SSHSessionObserver {
    Intruder(std::string moment, std::function<void()> act)
        : when(std::move(moment)), action(std::move(act)) {}

    void notice(const std::string &moment) {
        if (moment == when)
            std::thread(std::exchange(action, [] {})).join();
    }
    void willChangeValueForKey(SSHSession & /*session*/,
                               const std::string & /*key*/) noexcept override {
        notice("will change");
    }
    void didChangeValueForKey(SSHSession & /*session*/,
                              const std::string & /*key*/) noexcept override {
        notice("did change");
    }
    void willBeginStage(SSHSession & /*session*/, SSHSessionStage stage) noexcept override {
        notice("begin " + std::to_string(static_cast<int>(stage)));
    }
    void didEndStage(SSHSession & /*session*/, SSHSessionStage stage,
                     bool /*succeeded*/) noexcept override {
        notice("end " + std::to_string(static_cast<int>(stage)));
    }

    const std::string when;
    std::function<void()> action;
};

class ConnectionTest : public ScriptedServerTest {
  protected:
    // Starts on another thread and stops once `isHanging`. A start that is not ended would hang.
    void stopAStart(const std::shared_ptr<TestSession> &session,
                    const std::function<bool()> &isHanging) {
        auto start = std::async(std::launch::async, [&] { return session->start(&error); });
        EXPECT_TRUE(eventually(isHanging));
        session->stop();
        EXPECT_FALSE(start.get());
        EXPECT_THAT(summary(error), HasSubstr(stopped));
        EXPECT_TRUE(session->isIdle());
    }
};

} // namespace

TEST_F(ConnectionTest, TheSocketAndTheSessionAreSetUpAsTheyShould) {
    const auto session = sessionAs("password", "sesame");
    ASSERT_TRUE(session->start(&error)) << summary(error);
    const auto connection = session->connection();
    int noDelay = 0;
    socklen_t size = sizeof noDelay;
    ::getsockopt(connection->socket(), IPPROTO_TCP, TCP_NODELAY, &noDelay, &size);
    EXPECT_NE(noDelay, 0);
    EXPECT_NE(::fcntl(connection->socket(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_THAT(libssh2_session_methods(connection->session(), LIBSSH2_METHOD_COMP_CS),
                testing::StartsWith("zlib"));
}

// The user is asked about one server while another thread connects to another one, under the same
// name: the answer is for the first, and so is the password.
TEST_F(ConnectionTest, APasswordGoesOnlyToTheServerThatWasVerified) {
    ScriptedServer second;
    Relay link(scripted.port());
    std::filesystem::remove(home.knownHosts());
    const auto session = makeSession(link.port(), "sesame", std::nullopt, "password");
    bool isFirst = true;
    std::future<bool> again;
    user->whileShown = [&] {
        if (!std::exchange(isFirst, false))
            return;
        std::async(std::launch::async, [&] {
            session->stop();
            link.retarget(second.port());
        }).get();
        again = std::async(std::launch::async, [&] { return session->start(nullptr); });
        EXPECT_TRUE(eventually([&] { return session->connection() != nullptr; }));
    };
    user->answers = {AlertAnswer::FirstButton, AlertAnswer::Refused};
    EXPECT_FALSE(session->start(&error));
    EXPECT_THAT(summary(error), HasSubstr(stopped));
    EXPECT_TRUE(eventually([&] {
        SSHPlatform::RunLoop::main()->runFor(std::chrono::milliseconds(10));
        return again.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    }));
    EXPECT_FALSE(again.get());
    EXPECT_EQ(user->shown.size(), 2U);
    EXPECT_EQ(scripted.received(1), Lines{"keepalive"});
    EXPECT_EQ(second.received(1), Lines{"keepalive"});
}

TEST_F(ConnectionTest, NothingReachesAServerWhoseKeyTheUserIsAskedAbout) {
    home.directory.write(".ssh/known_hosts", "127.0.0.1 " + server().hostKey() + "\n"); // another
    const auto session = sessionAs("password", "sesame");
    const auto onAnotherThread = [&] {
        EXPECT_EQ(resultOf(*session, "out forged; eof; close", "admin", "input"), notConnected);
        EXPECT_FALSE(session->start(&error));
        EXPECT_THAT(summary(error), HasSubstr("The session is being started already."));
    };
    user->whileShown = [&] { std::thread(onAnotherThread).join(); };
    user->answers = {AlertAnswer::SecondButton};
    EXPECT_FALSE(session->start(&error));
    EXPECT_EQ(scripted.received(1), Lines{"keepalive"});
    EXPECT_THAT(user->shown, testing::ElementsAre(testing::StartsWith("Critical: ")));
}

// In each window of a start that is about to succeed.
TEST_F(ConnectionTest, AnEndThatComesWhileStartFinishes) {
    for (const std::string moment : {"end 4", "will change", "did change"}) {
        for (const bool stops : {true, false}) {
            SCOPED_TRACE(moment + (stops ? ", stop" : ", a failing command"));
            const auto session = sessionAs("password", "sesame");
            const auto intruder = std::make_shared<Intruder>(moment, [&] {
                if (stops)
                    session->stop();
                else
                    EXPECT_FALSE(session->execute(nullptr, nullptr));
            });
            session->addObserver(intruder);
            // A command touches nothing before the session is connected.
            const bool succeeds = !stops && moment != "did change";
            EXPECT_EQ(session->start(nullptr), succeeds);
            EXPECT_EQ(session->isIdle(), !succeeds);
            EXPECT_EQ(session->isConnected(), succeeds);
            session->stop();
            EXPECT_TRUE(session->start(&error)) << summary(error);
            session->stop();
        }
    }
}

TEST_F(ConnectionTest, StopEndsAStartThatHangs) {
    asio::io_context context;
    tcp::acceptor silent(context, {asio::ip::address_v4::loopback(), 0});
    const auto hangsIn = [&](const std::shared_ptr<TestSession> &session,
                             const std::string &moment) {
        auto begun = std::make_shared<std::atomic<bool>>(false);
        const auto watch = std::make_shared<Intruder>(moment, [begun] { *begun = true; });
        session->addObserver(watch);
        stopAStart(session, [&] { return begun->load(); });
    };
    hangsIn(makeSession(silent.local_endpoint().port()), "begin 1"); // it says nothing
    hangsIn(sessionAs("password silent", "sesame"), "begin 4");

    // Nobody answers the look-up, which is left behind.
    std::promise<void> released;
    std::atomic<int> lookUps = 0;
    wrapped().beforeLookUp = [&, gate = released.get_future().share()] {
        ++lookUps;
        gate.wait();
        ++lookUps;
    };
    stopAStart(sessionAs("password", "sesame"), [&] { return lookUps == 1; });
    released.set_value();
    EXPECT_TRUE(eventually([&] { return lookUps == 2; }));
    wrapped().beforeLookUp = nullptr;

    // Once its queue of connections is full, a listener is an address that never answers.
    tcp::acceptor full(context, {asio::ip::address_v4::loopback(), 0});
    full.listen(0);
    tcp::socket filling(context);
    filling.connect(full.local_endpoint());
    hangsIn(makeSession(full.local_endpoint().port()), "begin 0");
}
