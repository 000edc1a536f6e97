// Sessions that watch their connection, and how they find out about its end.
#include "Tests/Support/Relay.h"
#include "Tests/Support/ScriptedServer.h"
#include "Tests/Support/Wrapped.h"

#include <fmt/format.h>

#include <future>
#include <limits>
#include <thread>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const std::string ended = "0 (null) |  | ";

struct Changes final : SSHSessionObserver {
    void willChangeValueForKey(SSHSession &session, const std::string & /*key*/) noexcept override {
        text += session.isConnected() ? '1' : '0';
    }
    void didChangeValueForKey(SSHSession &session, const std::string & /*key*/) noexcept override {
        text += session.isConnected() ? '1' : '0';
    }
    std::string text;
};

class WatchTest : public ScriptedServerTest {
  protected:
    WatchTest() { options.watchesConnection = true; }

    std::shared_ptr<TestSession> watched(unsigned short port,
                                         const std::string &name = "password") {
        auto session = makeSession(port, "sesame", key(), name);
        session->setDelegate(this);
        session->addObserver(changes);
        session->attendInterval = std::chrono::milliseconds(10);
        EXPECT_TRUE(session->start(&error)) << summary(error);
        return session;
    }

    // Not on this thread, and not to be waited for: it waits for the end that is just told.
    void sshSessionDisconnected(SSHSession &session, const SSHErrorRef &why) noexcept override {
        ScriptedServerTest::sshSessionDisconnected(session, why);
        if (!mStartsAgain)
            return;
        auto again = std::async(std::launch::async, [&] { return session.start(nullptr); });
        EXPECT_EQ(again.wait_for(std::chrono::milliseconds(250)), std::future_status::timeout);
        mAgain.set_value(std::move(again));
    }

    bool mStartsAgain = false;
    std::promise<std::future<bool>> mAgain;
    const std::shared_ptr<Changes> changes = std::make_shared<Changes>();
};

} // namespace

TEST_F(WatchTest, KeepalivesComeAfterLogInAndInEverySilence) {
    wrapped().goodAllocations = std::numeric_limits<int>::max();
    const auto session = watched(scripted.port());
    EXPECT_EQ(resultOf(*session, "eof; close; closed"), ended);
    EXPECT_EQ(scripted.received(2), (Lines{"password b'sesame'", "done"}));
    session->keepAliveInterval = std::chrono::milliseconds(250);
    for (const auto &[script, password] :
         std::vector<std::pair<std::string, std::optional<std::string>>>{
             {"wait 0.8; eof; close; closed", {}},
             {"eof; wait 0.8; close; closed", {}},
             {"wait 0.8; success; eof; close; closed", "admin"}}) {
        EXPECT_EQ(resultOf(*session, script, password), ended);
        EXPECT_EQ(scripted.received(1).front(), "keepalive") << script;
        while (scripted.log().ends_with("keepalive\n")) // "done" comes behind the command's end
            std::this_thread::yield();
        scripted.received();
    }
#ifdef SSHSESSION_MENDED_LIBSSH2
    // Answers do not pile up.
    const int before = wrapped().liveAllocations;
    wrapped().inject();
    EXPECT_TRUE(eventuallyServing([] { return wrapped().calls()["libssh2_keepalive_send"] > 3; }));
    session->mSessionQueue.sync([] {});
    EXPECT_LE(wrapped().liveAllocations, before);
#endif
    wrapped().goodAllocations = std::nullopt;
    session->stop();
    EXPECT_EQ(notices, Lines());
}

TEST_F(WatchTest, AnEndIsNoticedWhileIdleAndToldOnce) {
    for (const auto &[end, notice] : std::vector<std::pair<std::string, std::string>>{
             {"disconnect 2 bye en", "2 | bye | en"}, {"disconnect 11", "in good order"}}) {
        SCOPED_TRACE(end);
        const auto session = watched(scripted.port());
        changes->text.clear();
        EXPECT_EQ(resultOf(*session, "eof; close; closed; " + end), ended);
        EXPECT_TRUE(eventuallyServing([&] { return session->isIdle(); }));
        session->mSessionQueue.sync([] {});
        EXPECT_EQ(std::exchange(notices, {}), Lines{notice});
        EXPECT_EQ(changes->text, "10");
        EXPECT_THAT(resultOf(*session, "eof; close"), HasSubstr("The session is not connected."));
    }
    const auto session = watched(scripted.port());
    mStartsAgain = true;
    EXPECT_EQ(resultOf(*session, "eof; close; closed; disconnect 2 bye en"), ended);
    auto told = mAgain.get_future();
    EXPECT_TRUE(eventuallyServing(
        [&] { return told.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    EXPECT_TRUE(told.get().get());
    EXPECT_EQ(resultOf(*session, "eof; close; closed"), ended);
}

// What the link does not carry any more, wherever the session is at that moment.
TEST_F(WatchTest, AServerThatLeavesThreeKeepalivesUnansweredIsGone) {
    const std::string gone =
        fmt::format("libssh2ErrorDomain {} | Dravella lost the connection to the SSH server "
                    "password@127.0.0.1. | The server has left three keepalives unanswered. | -",
                    ETIMEDOUT);
    for (const char *script : {"", "eof; close", "read; wait 60", "eof; read; wait 60"}) {
        SCOPED_TRACE(script);
        Relay link(scripted.port());
        const auto session = watched(link.port());
        scripted.received(1);
        wrapped().inject();
        session->keepAliveInterval = std::chrono::milliseconds(250);
        if (*script == '\0') {
            link.cut();
            EXPECT_TRUE(eventuallyServing([&] { return session->isIdle(); }));
            session->mSessionQueue.sync([] {});
            EXPECT_THAT(std::exchange(notices, {}),
                        ElementsAre(HasSubstr(fmt::format("{} | Dravella lost the", ETIMEDOUT))));
        } else {
            const bool isRunning = std::string(script).find("read") != std::string::npos;
            if (!isRunning)
                link.cut();
            auto run = std::async(std::launch::async,
                                  [&] { return resultOf(*session, script, std::nullopt, "x\n"); });
            if (isRunning) {
                while (scripted.received(1).back() != "line b'x'") {
                }
                link.cut();
            }
            EXPECT_EQ(run.get(), gone);
            EXPECT_TRUE(session->isIdle());
            EXPECT_EQ(notices, Lines());
        }
        EXPECT_GE(wrapped().calls()["libssh2_keepalive_send"], 3);
    }
}

// A server that asks, and has no room for a second channel. A session that nobody listens to dies.
TEST_F(WatchTest, AServersOwnQuestionsAreAnswered) {
    serverWith(
        "ClientAliveInterval 1\nClientAliveCountMax 2\nMaxSessions 1\nRekeyLimit default 1\n")
        .authorize(key());
    const auto session = watched(mServer->port(), currentUser());
    options.watchesConnection = false;
    const auto plain = connected();
    EXPECT_TRUE(
        eventuallyServing([&] { return mServer->log().find("Timeout") != std::string::npos; }));
    EXPECT_THAT(resultOf(*plain, "echo a"), HasSubstr("An error occurred in"));
    EXPECT_EQ(resultOf(*session, "echo a"), "0 (null) | a\n | ");
}

// While keys are exchanged, for example. The command may wait for it, as this one does.
TEST_F(WatchTest, TheEndOfTheInputIsSentOnceItCanBe) {
    options.endsInputOnce = true;
    const auto session = connected();
    wrapped().inject({"libssh2_channel_send_eof", 1, 3, LIBSSH2_ERROR_EAGAIN});
    EXPECT_EQ(resultOf(*session, "exec >/dev/null 2>&1; cat; sleep 0.3", std::nullopt, "x"), ended);
    EXPECT_EQ(wrapped().calls()["libssh2_channel_send_eof"], 4);
}
