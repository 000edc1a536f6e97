// The life of a connection, whoever comes in between on another thread.
#include "Tests/Support/Relay.h"
#include "Tests/Support/ScriptedServer.h"
#include "Tests/Support/Wrapped.h"

#include <SSHSession/RunLoop.h>

#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>
#include <fmt/format.h>

#include <fcntl.h>
#include <netinet/tcp.h>

#include <future>
#include <thread>

using namespace std::string_literals;
using asio::ip::tcp;
using asio::local::stream_protocol;
using SSHPlatform::AlertAnswer;
using testing::HasSubstr;

namespace {

const std::string stopped = "The session was stopped while it was connecting.";
const std::string cancelled = "The session was cancelled while it was connecting.";
const std::string notConnected = "libssh2ErrorDomain 0 | Dravella could not execute the SSH "
                                 "command. | The session is not connected. | -";
const std::string idlePair = "will isConnected 0 queued did isConnected 0 queued ";
const std::string endPair = "will isConnected 1 queued did isConnected 0 queued ";
// Of a start.
const std::string all = "(0+)(1+)(2+)(3-)(4+)will isConnected 0 did isConnected 1 every 30000 ms ";

// A host whose one timer fires when the test says so. Writes down every notice: "(2+)" is a stage
// that succeeded, "(2-)" one that failed, and a change shows the value that it finds, and whether
// this is the session queue. At one moment it does something on another thread, and waits for it.
struct Host final : SSHSessionObserver, SSHPlatform::MainLoop, SSHPlatform::RepeatingTimer {
    void note(const std::string &notice) {
        notices += notice;
        if (action && notices.ends_with(moment))
            std::thread(std::exchange(action, nullptr)).join();
    }
    void noteChange(const char *when, SSHSession &session, const std::string &key) {
        const bool isQueued = dynamic_cast<TestSession &>(session).mSessionQueue.isCurrent();
        note(when + key + (session.isConnected() ? " 1 " : " 0 ") + (isQueued ? "queued " : ""));
    }
    void willChangeValueForKey(SSHSession &session, const std::string &key) noexcept override {
        noteChange("will ", session, key);
    }
    void didChangeValueForKey(SSHSession &session, const std::string &key) noexcept override {
        noteChange("did ", session, key);
    }
    void willBeginStage(SSHSession & /*session*/, SSHSessionStage stage) noexcept override {
        note("(" + std::to_string(static_cast<int>(stage)));
    }
    void didEndStage(SSHSession & /*session*/, SSHSessionStage /*stage*/,
                     bool succeeded) noexcept override {
        note(succeeded ? "+)" : "-)");
    }
    bool isMainThread() const noexcept override { return true; }
    bool runAndWait(const std::function<void()> &work) noexcept override { return work(), true; }
    std::shared_ptr<RepeatingTimer>
    scheduleRepeating(std::chrono::milliseconds interval,
                      std::function<void()> work) noexcept override {
        fire = std::move(work);
        note(fmt::format("every {} ms ", interval.count()));
        return {std::shared_ptr<void>(), this};
    }
    void invalidate() noexcept override { fire = nullptr; }

    std::string taken() { return std::exchange(notices, {}); }

    std::string notices;
    std::string moment;
    std::function<void()> action;
    std::function<void()> fire;
};

class LifecycleTest : public ScriptedServerTest {
  protected:
    std::shared_ptr<TestSession> observed() {
        SSHPlatform::install(host, user);
        auto session = sessionAs("password", "sesame");
        session->addObserver(host);
        return session;
    }

    // Of a start at a server that says this, once or for as long as it is listened to.
    std::string errorAt(const std::string &said, bool isRepeated) {
        asio::io_context context;
        tcp::acceptor listener(context, {asio::ip::address_v4::loopback(), 0});
        std::jthread server([&] {
            tcp::socket peer = listener.accept();
            asio::error_code ended;
            do
                asio::write(peer, asio::buffer(said), ended);
            while (isRepeated && !ended);
            peer.shutdown(peer.shutdown_send, ended);
            std::string taken; // all of it, or the connection would be reset
            asio::read(peer, asio::dynamic_buffer(taken), ended);
        });
        const auto session = makeSession(listener.local_endpoint().port());
        session->setDelegate(this);
        EXPECT_FALSE(session->start(&error));
        return summary(error);
    }

    const std::shared_ptr<Host> host = std::make_shared<Host>();
};

} // namespace

TEST_F(LifecycleTest, MisuseEndsTheProcess) {
    SSHSession plain("host", 1, "ada", std::nullopt, std::nullopt);
    const std::string where = "(false), function -[SSHSession ";
    EXPECT_DEATH(plain.start(nullptr), HasSubstr(where + "start:], file SSHSession, line 88"));
    EXPECT_DEATH(plain.stop(), HasSubstr(where + "stop], file SSHSession, line 95"));
    EXPECT_DEATH(plain.execute(nullptr, nullptr),
                 HasSubstr(where + "execute:error:], file SSHSession, line 101"));
    const auto startTwice = [&](const std::optional<std::string> &name) {
        const auto session = std::make_shared<TestSession>(
            "127.0.0.1", scripted.port(), name, SSHPlatform::Secret::of("sesame"), std::nullopt);
        session->start(nullptr);
        session->start(nullptr);
    };
    EXPECT_DEATH(startTwice("password"),
                 HasSubstr("(!mKeepAliveTimer), function -[SSHSession_libssh2 start:], file "
                           "SSHSession_libssh2, line 122"));
    EXPECT_DEATH(startTwice(std::nullopt), "self.user.*_authenticate");
}

TEST_F(LifecycleTest, FromStartToStop) {
    auto session = observed();
    ASSERT_TRUE(session->start(&error)) << summary(error);
    EXPECT_EQ(host->taken(), all);
    const int socket = session->connection()->socket();
    int noDelay = 0;
    socklen_t size = sizeof noDelay;
    ::getsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &noDelay, &size);
    EXPECT_NE(noDelay, 0);
    EXPECT_NE(::fcntl(socket, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_THAT(libssh2_session_methods(session->connection()->session(), LIBSSH2_METHOD_COMP_CS),
                testing::StartsWith("zlib"));
    scripted.received(2); // a keepalive and the password

    // The timer holds the session.
    const std::weak_ptr<TestSession> watch = session;
    TestSession *const held = session.get();
    session.reset();
    ASSERT_FALSE(watch.expired());
    const std::function<void()> fire = host->fire;
    for (const char *mode : {"blocking", "as a command leaves the session"}) {
        SCOPED_TRACE(mode);
        for (const int seconds : {28, 3}) { // due when the interval has passed, and only then
            wrapped().secondsAhead += seconds;
            fire();
            held->mSessionQueue.sync([] {});
        }
#ifdef SSHSESSION_WRAPS_LIBSSH2
        EXPECT_EQ(scripted.received(1), Lines{"keepalive"});
#else
        GTEST_LOG_(WARNING) << "*** keepalives are not tested: the system's libssh2 has its own "
                               "clock ***";
#endif
        EXPECT_EQ(resultOf(*held, "eof; close"), "0 (null) |  | ");
        EXPECT_EQ(host->taken(), "(5+)");
        EXPECT_EQ(scripted.received(1), Lines{"done"});
    }
    wrapped().secondsAhead = 0;
    held->stop();
    held->stop();
    held->removeObserver(host);
    held->stop();
    EXPECT_EQ(host->taken(), endPair + idlePair);
    fire(); // it was on its way when it was cancelled
    EXPECT_TRUE(eventually([&] { return watch.use_count() == 1; })); // `fire` itself
}

TEST_F(LifecycleTest, AnEndThatComesWhileStartRuns) {
    const auto session = observed();
    const auto startMeets = [&](const std::string &moment, std::function<void()> action) {
        host->taken();
        host->moment = moment;
        host->action = std::move(action);
        return session->start(&error);
    };
    for (const auto &[moment, rest] : std::vector<std::pair<std::string, std::string>>{
             {"(0", "-)" + idlePair},
             {"(2+)", "(3-)(4-)" + idlePair},
             {"(4+)", "will isConnected 0 did isConnected 0 " + idlePair},
             {"will isConnected 0 ", "did isConnected 0 " + idlePair},
             {"did isConnected 1 ", endPair},
             {"every 30000 ms ", endPair}}) {
        const std::string before = all.substr(0, all.find(moment) + moment.size());
        EXPECT_FALSE(startMeets(moment, [&] { session->stop(); })) << moment;
        EXPECT_EQ(host->taken(), before + (rest == endPair ? rest + idlePair : idlePair + rest));
        EXPECT_THAT(summary(error), HasSubstr(stopped));
        EXPECT_TRUE(session->isIdle());
        EXPECT_FALSE(startMeets(moment, [&] { session->cancel(); })) << moment;
        EXPECT_EQ(host->taken(), before + rest);
        EXPECT_THAT(summary(error), HasSubstr(cancelled));
        EXPECT_TRUE(session->isIdle());
    }
    const auto runNothing = [&] { EXPECT_FALSE(session->execute(nullptr, &error)); };
    EXPECT_TRUE(startMeets("will isConnected 0 ", runNothing)); // no command touches it before
    EXPECT_EQ(summary(error), notConnected);
    session->stop();
    EXPECT_FALSE(startMeets("did isConnected 1 ", runNothing));
    EXPECT_TRUE(session->isIdle());
    EXPECT_FALSE(startMeets("did isConnected 1 ", [&] {
        session->stop();
        EXPECT_TRUE(session->start(nullptr));
    }));
    EXPECT_TRUE(session->isConnected()); // by the start that came later
}

// The user is asked about one server while other threads try to use it, and connect to another one
// under the same name: the answer is for the first, and so is the password.
TEST_F(LifecycleTest, APasswordGoesOnlyToTheServerThatWasVerified) {
    Relay link(server().port());
    std::filesystem::remove(home.knownHosts());
    const auto session = makeSession(link.port(), "sesame", std::nullopt, "password");
    std::future<bool> again;
    SSHErrorRef refused;
    const auto meanwhile = [&] {
        EXPECT_EQ(resultOf(*session, "out forged; eof; close", "admin", "input"), notConnected);
        EXPECT_FALSE(session->start(&error));
        EXPECT_THAT(summary(error), HasSubstr("The session is being started already."));
        session->stop();
        link.retarget(scripted.port());
    };
    user->whileShown = [&] {
        if (again.valid())
            return;
        std::thread(meanwhile).join();
        again = std::async(std::launch::async, [&] { return session->start(&refused); });
        EXPECT_TRUE(eventually([&] { return session->connection() != nullptr; }));
    };
    user->answers = {AlertAnswer::FirstButton, AlertAnswer::SecondButton};
    EXPECT_FALSE(session->start(&error));
    EXPECT_THAT(summary(error), HasSubstr(stopped));
    EXPECT_FALSE(elsewhere([&] { return again.get(); }) || refused);
    EXPECT_EQ(user->shown.size(), 2U);
    EXPECT_EQ(scripted.received(1), Lines{"keepalive"});
}

TEST_F(LifecycleTest, StopAndCancelEndAStartThatHangs) {
    asio::io_context context;
    const auto endEachWay = [&](const std::shared_ptr<TestSession> &session,
                                const std::function<bool()> &isHanging) {
        for (const auto &[end, text] :
             {std::pair(&SSHSession::stop, stopped), std::pair(&SSHSession::cancel, cancelled)}) {
            auto start = std::async(std::launch::async, [&] { return session->start(&error); });
            EXPECT_TRUE(eventually(isHanging));
            (*session.*end)();
            EXPECT_FALSE(start.get());
            EXPECT_THAT(summary(error), HasSubstr(text));
            EXPECT_TRUE(session->isIdle());
        }
    };
    endEachWay(sessionAs("password silent", "sesame"), [&] {
        scripted.received(2);
        const bool succeeded = sessionAs("password", "sesame")->start(nullptr);
        scripted.received(2);
        return succeeded; // nor does one wait for another
    });
    // The library takes the end for a key that cannot sign; a pass phrase would be of no use.
    endEachWay(sessionAs("publickey silent", std::nullopt, key()),
               [&] { return scripted.received(2).back() == "key ssh-ed25519"; });
    EXPECT_TRUE(user->shown.empty());
    const std::string path = home.directory.path("agent");
    stream_protocol::acceptor agent(context, path);
    ::setenv("SSH_AUTH_SOCK", path.c_str(), 1);
    stream_protocol::socket peer(context);
    endEachWay(sessionAs("publickey"), [&] {
        agent.accept().close(); // a probe
        peer = agent.accept();
        char byte = 0;
        return asio::read(peer, asio::buffer(&byte, 1)) > 0;
    });
    std::promise<void> released;
    std::atomic<int> lookUps = 0;
    wrapped().beforeLookUp = [&, gate = released.get_future().share()] {
        ++lookUps;
        gate.wait();
        ++lookUps;
    };
    endEachWay(sessionAs("password", "sesame"), [&] { return lookUps.exchange(0) == 1; });
    released.set_value();
    EXPECT_TRUE(eventually([&] { return lookUps == 2; })); // they were left behind
    wrapped().beforeLookUp = nullptr;
}

TEST_F(LifecycleTest, CancelEndsCommandsAndQuestions) {
    const auto session = sessionAs("password", "sesame");
    session->cancel(); // nothing is under way, here and below
    ASSERT_TRUE(session->start(&error)) << summary(error);
    session->cancel();
    EXPECT_EQ(resultOf(*session, "eof; close"), "0 (null) |  | ");
    scripted.received(3);
    const auto runs = [&](const std::string &text, const std::string &input) {
        return std::async(std::launch::async,
                          [=] { return resultOf(*session, text, std::nullopt, input); });
    };
    auto running = runs("eof; read; wait 0.3; read; read", "input\n"); // and its end
    EXPECT_EQ(scripted.received(2), (Lines{"line b'input'", "line b'<end>'"}));
    auto waiting = runs("eof; close", "");
    session->cancel();
    const std::string was = "The command was cancelled. It may still be running on the server.";
    EXPECT_EQ(running.get(), fmt::format("libssh2ErrorDomain {} | Dravella could not execute the "
                                         "SSH command. | {} | -",
                                         ECANCELED, was));
    EXPECT_THAT(waiting.get(), testing::AnyOf(HasSubstr(was), notConnected));
    EXPECT_TRUE(session->isIdle());

    // A question is taken down, and one that is still waiting for the main thread never shown. An
    // answer that comes all the same does not count.
    std::filesystem::remove(home.knownHosts());
    user->answers = {AlertAnswer::FirstButton};
    user->whileShown = [&] {
        const auto isWithdrawn = [&] {
            return SSHPlatform::waitForSocket(user->withdrawal, SSHPlatform::WaitFor::Reading,
                                              std::chrono::milliseconds(0));
        };
        EXPECT_EQ(isWithdrawn(), 0);
        session->cancel();
        EXPECT_EQ(isWithdrawn(), 1);
    };
    EXPECT_FALSE(session->start(&error));
    EXPECT_THAT(summary(error), HasSubstr(cancelled));
    EXPECT_FALSE(std::filesystem::exists(home.knownHosts()));
    std::atomic<bool> isAsking = false;
    SSHPlatform::setLogSink(nullptr);
    session->addObserver(host);
    host->moment = "(2";
    host->action = [&] { isAsking = true; };
    auto start = std::async(std::launch::async, [&] { return session->start(&error); });
    EXPECT_TRUE(eventually([&] { return isAsking.load(); }));
    session->cancel();
    EXPECT_FALSE(start.get());
    EXPECT_THAT(summary(error), HasSubstr(cancelled));
    SSHPlatform::RunLoop::main()->runFor(std::chrono::milliseconds(10));
    EXPECT_EQ(user->shown.size(), 1U);
}

TEST_F(LifecycleTest, AServerThatNeverComesToThePointIsGivenUp) {
    EXPECT_THAT(
        errorAt(std::string(1000, 'x') + "\r\n", true),
        testing::ContainsRegex(
            "-2 \\| .*@127.0.0.1. \\| The server has sent 1 MB without saying that it speaks "
            "SSH. Another kind of server may be listening on this"));
    // A disconnect message, before any keys are exchanged, is no lost connection.
    EXPECT_THAT(
        errorAt("SSH-2.0-x\r\n\0\0\0\x1c\x0b\1\0\0\0\2\0\0\0\3bye\0\0\0\0"s + std::string(11, '\0'),
                false),
        HasSubstr("@127.0.0.1. | Could not complete the handshake. The "));
    EXPECT_EQ(notices, Lines());
    std::string rounds = "keyboard-interactive";
    for (int i = 0; i < 150; ++i)
        rounds += " 1";
    EXPECT_FALSE(sessionAs(rounds, "sesame")->start(&error));
    EXPECT_THAT(summary(error),
                HasSubstr("The server asked for the password again and again, and was given up"));
    EXPECT_LE(scripted.received(100).size(), 101U); // a keepalive as well

    const auto session = sessionAs("password", "sesame");
    ASSERT_TRUE(session->start(&error)) << summary(error);
    EXPECT_THAT(resultOf(*session, "out a; junk"),
                testing::AllOf(HasSubstr("-14 | Dravella lost the connection to the SSH server"),
                               HasSubstr("The server kept sending what nobody asked for, and was "
                                         "given up after 64 MB.")));
}
