#include "Tests/Support/SessionTest.h"

#include <SSHSession/RunLoop.h>

#include <thread>

using SSHPlatform::AlertAnswer;
using std::chrono::milliseconds;

namespace {

// Writes down every notice: "(2+)" is a stage that succeeded, "(2-)" one that failed, and a change
// of the property shows the value that it finds, and whether this is the session queue.
struct Recorder final : SSHSessionObserver {
    void willChangeValueForKey(SSHSession &session, const std::string &key) noexcept override {
        changes("will ", session, key);
    }
    void didChangeValueForKey(SSHSession &session, const std::string &key) noexcept override {
        changes("did ", session, key);
    }
    void changes(const char *when, SSHSession &session, const std::string &key) {
        const bool isQueued = dynamic_cast<TestSession &>(session).mSessionQueue.isCurrent();
        notices +=
            when + key + (session.isConnected() ? " 1 " : " 0 ") + (isQueued ? "queued " : "");
    }
    void willBeginStage(SSHSession & /*session*/, SSHSessionStage stage) noexcept override {
        notices += "(" + std::to_string(static_cast<int>(stage));
    }
    void didEndStage(SSHSession & /*session*/, SSHSessionStage /*stage*/,
                     bool succeeded) noexcept override {
        notices += succeeded ? "+)" : "-)";
    }

    std::string taken() { return std::exchange(notices, {}); }
    std::string notices;
};

const std::string idlePair = "will isConnected 0 queued did isConnected 0 queued ";
const std::string startPair = "will isConnected 0 did isConnected 1 ";
const std::string endPair = "will isConnected 1 queued did isConnected 0 queued ";

// A main loop whose timers fire when the test says so.
struct HandLoop final : SSHPlatform::MainLoop {
    struct Timer final : SSHPlatform::RepeatingTimer {
        void invalidate() noexcept override { action = nullptr; }
        std::function<void()> action;
    };

    bool isMainThread() const noexcept override { return true; }
    bool runAndWait(const std::function<void()> &work) noexcept override {
        if (hasEnded)
            return false;
        work();
        return true;
    }
    std::shared_ptr<SSHPlatform::RepeatingTimer>
    scheduleRepeating(milliseconds interval, std::function<void()> action) noexcept override {
        intervals.push_back(interval);
        timer = std::make_shared<Timer>();
        timer->action = std::move(action);
        return timer;
    }

    bool hasEnded = false;
    std::vector<milliseconds> intervals;
    std::shared_ptr<Timer> timer;
};

class LifecycleTest : public SessionTest {
  protected:
    std::shared_ptr<TestSession> observed(std::shared_ptr<TestSession> session) {
        session->addObserver(recorder);
        return session;
    }

    const std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
};

} // namespace

TEST(FacadeDeathTest, AnAbstractSessionOnlyCarriesItsParameters) {
    SSHSession plain("host", 65535, "ada", std::nullopt, "~/key");
    EXPECT_EQ(plain.host(), "host");
    EXPECT_EQ(plain.port(), 65535);
    EXPECT_EQ(plain.keyFilePath(), "~/key");
    EXPECT_FALSE(plain.uuid() || plain.password() || plain.isConnected());
    const auto report = [](const char *function, const char *line) {
        return std::string("\\(false\\), function -\\[SSHSession ") + function +
               "\\], file SSHSession, line " + line;
    };
    EXPECT_DEATH(plain.start(nullptr), report("start:", "88"));
    EXPECT_DEATH(plain.stop(), report("stop", "95"));
    EXPECT_DEATH(plain.execute(nullptr, nullptr), report("execute:error:", "101"));
}

TEST_F(LifecycleTest, AnnouncesStagesAndConnection) {
    const auto session = observed(makeSession(server().port(), std::nullopt, key()));
    session->stop();
    EXPECT_EQ(recorder->taken(), idlePair);
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(session->start(&error)) << summary(error);
        EXPECT_EQ(recorder->taken(), "(0+)(1+)(2+)(3-)(4+)" + startPair);
        EXPECT_TRUE(session->execute(makeCommand("true"), &error));
        EXPECT_EQ(recorder->taken(), "(5+)");
        session->stop();
        EXPECT_EQ(recorder->taken(), endPair);
        session->stop();
        EXPECT_EQ(recorder->taken(), idlePair);
        EXPECT_TRUE(session->isIdle());
    }
    session->removeObserver(recorder);
    session->stop();
    EXPECT_EQ(recorder->taken(), "");
}

TEST_F(LifecycleTest, TheKeepaliveTimerHoldsTheSessionUntilStop) {
    const auto loop = std::make_shared<HandLoop>();
    SSHPlatform::install(loop, user);
    auto session = connected();
    EXPECT_EQ(loop->intervals, std::vector<milliseconds>{std::chrono::seconds(30)});
    const std::weak_ptr<TestSession> watch = session;
    session.reset();
    SSHSession *const held = watch.lock().get();
    ASSERT_TRUE(held);

    // Due again only when the interval has passed since the one that `start` sent, so the server
    // sees none of these; but none may fail or end the connection either.
    loop->timer->action();
    loop->timer->action();
    EXPECT_TRUE(held->execute(makeCommand("true"), &error));
    const std::function<void()> late = loop->timer->action;
    held->stop();
    late(); // a timer that fired just before it was cancelled finds no session
    EXPECT_TRUE(eventually([&] { return watch.use_count() == 1; })); // `late` itself

    error = nullptr;
    loop->hasEnded = true; // then every question counts as refused
    std::filesystem::remove(home.knownHosts());
    EXPECT_FALSE(makeSession(server().port())->start(&error));
    EXPECT_TRUE(error == nullptr && user->shown.empty());
}

TEST_F(LifecycleTest, AConnectedSessionMustNotBeStartedAgain) {
    server(); // here, not in the process that dies and would leave its server behind
    EXPECT_DEATH(connected()->start(nullptr),
                 "\\(!mKeepAliveTimer\\), function -\\[SSHSession_libssh2 start:\\], file "
                 "SSHSession_libssh2, line 122");
    EXPECT_DEATH(
        std::make_shared<TestSession>("127.0.0.1", server().port(), std::nullopt, "p", std::nullopt)
            ->start(nullptr),
        "self.user.*_authenticate");
}

TEST_F(LifecycleTest, ARefusalOrAStopAtAnyQuestionMakesStartFail) {
    const Sshd sshd;
    const std::string locked = home.directory.path(".ssh/id_rsa");
    makeKey(locked, "rsa", "sesame");
    for (const std::string &path : {key(), locked})
        sshd.authorize(path);
    const auto session = observed(makeSession(sshd.port()));
    EXPECT_FALSE(session->start(&error));
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(recorder->taken(), "(0+)(1+)(2-)" + idlePair);

    user->whileShown = [&] { std::thread([&] { session->stop(); }).join(); };
    user->answers.assign(2, AlertAnswer::FirstButton);
    for (const auto &[question, stages] : std::vector<std::pair<const char *, std::string>>{
             {"authenticity of host", "(0+)(1+)(2" + idlePair + "-)" + idlePair},
             {"Enter your password", "(0+)(1+)(2+)(3-)(4" + idlePair + "-)" + idlePair}}) {
        user->shown.clear();
        EXPECT_FALSE(session->start(&error));
        EXPECT_EQ(error->localizedFailureReason(),
                  "The session was stopped while it was connecting.");
        EXPECT_THAT(user->shown, testing::ElementsAre(testing::HasSubstr(question)));
        EXPECT_EQ(recorder->taken(), stages);
        EXPECT_EQ(contentOf(home.knownHosts()), "127.0.0.1 " + sshd.hostKey() + "\n");
    }
    const SshAgent agent({key()});
    EXPECT_TRUE(session->start(&error)) << summary(error);
}

// Whatever stage the other thread's `stop` falls into, nothing is left over and nothing breaks.
TEST_F(LifecycleTest, StopAtAnyMoment) {
    const SshAgent agent({key()});
    const auto session = makeSession(server().port());
    for (int delay = 0; delay < 24; ++delay) {
        std::thread stopper([&] {
            std::this_thread::sleep_for(milliseconds(2 * delay));
            session->stop();
        });
        const bool started = session->start(nullptr);
        stopper.join();
        if (started)
            session->stop();
        EXPECT_TRUE(session->isIdle());
    }
    EXPECT_TRUE(session->start(&error)) << summary(error);
}
