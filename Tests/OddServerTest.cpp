#include "Tests/Support/ScriptedServer.h"
#include "Tests/Support/Wrapped.h"

#include <fmt/format.h>

#include <regex>
#include <thread>

namespace {

std::string failed(const char *function, int code, const std::string &reason) {
    return fmt::format("libssh2ErrorDomain {} | An error occurred in {}. ({}) | {} | {}", code,
                       function, code, reason, reason);
}

// Whichever stream is read when the disconnect arrives gives the error its name.
std::string afterEitherRead(const std::string &result) {
    return std::regex_replace(result, std::regex("channel_read_stderr"), "channel_read");
}

const std::string lost =
    failed("libssh2_channel_read", -13, "The socket was disconnected. transport read");
const std::string lostIdle =
    failed("libssh2_channel_open_session", -13, "The socket was disconnected. Unexpected error");
const std::string couldNot =
    "libssh2ErrorDomain 0 | Dravella could not execute the SSH command. | ";
const std::string timedOut = couldNot + "Password authentication for sudo timed out. | -";
const std::string notAccepted =
    couldNot + "The SSH user was not able to use sudo. The password was not accepted. | -";

class OddServerTest : public ScriptedServerTest {
  protected:
    std::shared_ptr<TestSession> connectedToScript() {
        auto session = sessionAs("password", "sesame");
        EXPECT_TRUE(session->start(&error)) << summary(error);
        scripted.received(2); // a keepalive and the password
        return session;
    }

    // As a client that sends these lines, through sudo where there is a password for it.
    void converse(TestSession &session, const std::string &script,
                  const std::optional<std::string> &password, const Lines &sent,
                  const std::string &result, const std::string &input = "") {
        SCOPED_TRACE(script);
        EXPECT_EQ(afterEitherRead(resultOf(session, script, password, input)), result);
        Lines expected;
        for (const std::string &line : sent)
            expected.push_back("line b'" + line + "'");
        expected.emplace_back("done");
        EXPECT_EQ(scripted.received(expected.size()), expected);
    }
};

} // namespace

TEST_F(OddServerTest, EndsOfCommands) {
    const auto session = connectedToScript();
    for (const auto &[script, result] : std::vector<std::pair<std::string, std::string>>{
             {"out a; err b; status 3; eof; close", "3 (null) | a | b"},
             {"out a; signal TERM; eof; close", "0 TERM | a | "},
             {"status 7; signal FOO@bar; eof; close", "7 FOO@bar |  | "},
             {"out a; eof; close", "0 (null) | a | "}, // no status at all
             {"out a; status 5; close", "5 (null) | a | "},
             {"out a; eof; closed; wait 0.1; status 5; close", "5 (null) | a | "}, // only then
             {"eof; wait 1.5; status 6; close", "6 (null) |  | "},
             {"close", "0 (null) |  | "},
             {R"(err '\xff\xfe'; eof; close)", "0 (null) |  | \xff\xfe"},
             {"out a; wait 0.3; err b; wait 0.3; out c; eof; close", "0 (null) | ac | b"}})
        EXPECT_EQ(resultOf(*session, script), result) << script;
    scripted.received(10);
    // The input goes out although both outputs have ended, before and after.
    converse(*session, "eof; wait 0.1; read; read; status 7; close", std::nullopt,
             {"data", "<end>"}, "7 (null) |  | ", "data\n");
    EXPECT_EQ(notices, Lines());
    EXPECT_EQ(resultOf(*session, "out a; status 5; eof; wait 0.1; disconnect 2"),
              "5 (null) | a | , cut off");
    EXPECT_EQ(notices, Lines{"2 | - | -"});
}

TEST_F(OddServerTest, Refusals) {
    const auto session = connectedToScript();
    EXPECT_EQ(resultOf(*session, "refuse-exec"),
              failed("libssh2_channel_exec", LIBSSH2_ERROR_CHANNEL_REQUEST_DENIED,
                     "Error -22. Unable to complete request for channel-process-startup"));
    ASSERT_TRUE(session->start(&error)) << summary(error);
    EXPECT_EQ(resultOf(*session, "refuse 4 'no more'; eof; close"), "0 (null) |  | ");
    EXPECT_EQ(resultOf(*session, "out a"),
              failed("libssh2_channel_open_session", LIBSSH2_ERROR_CHANNEL_FAILURE,
                     "Error -21. Channel open failure (resource shortage)"));
    EXPECT_EQ(notices, Lines());
}

TEST_F(OddServerTest, DisconnectsAreToldOnce) {
    for (const auto &[sent, notice] : std::vector<std::pair<std::string, std::string>>{
             {"2 bye en", "2 | bye | en"},
             {"2 bye ''", "2 | bye | -"},
             {"2 '' de", "2 | - | de"},
             {"2", "2 | - | -"}, // the packet ends after the number
             {R"(2 'a\xffb' '\xfe')", "2 | a\uFFFDb | \uFFFD"},
             {"11 bye en", "in good order"}}) {
        SCOPED_TRACE(sent);
        const std::string disconnect = "disconnect " + sent;
        EXPECT_FALSE(sessionAs(disconnect)->start(&error)); // before any method
        EXPECT_FALSE(sessionAs("password " + disconnect, "sesame")->start(&error));
        EXPECT_THAT(summary(error), testing::HasSubstr("ssh user password. (-13)"));
        EXPECT_EQ(std::exchange(notices, {}), Lines(2, notice));

        const auto session = connectedToScript();
        EXPECT_EQ(afterEitherRead(resultOf(*session, "out a; wait 0.05; " + disconnect)), lost);
        EXPECT_EQ(std::exchange(notices, {}), Lines{notice});

        // Nobody reads while the session is idle: the next command meets the message.
        ASSERT_TRUE(session->start(&error)) << summary(error);
        scripted.received(3); // what the failed command left, a keepalive, the password
        EXPECT_EQ(resultOf(*session, "eof; close; closed; " + disconnect), "0 (null) |  | ");
        EXPECT_EQ(scripted.received(1), Lines{"done"});
        EXPECT_TRUE(session->isConnected());
        EXPECT_EQ(notices, Lines());
        EXPECT_EQ(resultOf(*session, "out a"), lostIdle);
        EXPECT_EQ(std::exchange(notices, {}), Lines{notice});
    }
}

TEST_F(OddServerTest, ADelegateMayLetGoOfSessionAndCommand) {
    struct Forgetful final : SSHSessionDelegate {
        void sshSessionDisconnected(SSHSession & /*session*/,
                                    const SSHErrorRef & /*why*/) noexcept override {
            session.reset();
            command.reset();
        }
        std::shared_ptr<SSHSession> session;
        std::shared_ptr<SSHCommand> command = makeCommand("out a; disconnect 2");
    } host;
    host.session = connectedToScript();
    host.session->setDelegate(&host);
    EXPECT_FALSE(host.session->execute(host.command, &error));
    EXPECT_EQ(afterEitherRead(summary(error)), lost);
    EXPECT_FALSE(host.command || host.session);
}

TEST_F(OddServerTest, StopAfterADisconnectTellsNothing) {
    const auto session = connectedToScript();
    EXPECT_EQ(resultOf(*session, "eof; close; closed; disconnect 2"), "0 (null) |  | ");
    EXPECT_EQ(scripted.received(1), Lines{"done"});
    session->keepAlive();
    EXPECT_TRUE(session->isConnected());
    session->stop();
    EXPECT_FALSE(session->isConnected());
    session->setDelegate(nullptr); // nobody to tell
    EXPECT_TRUE(session->start(&error)) << summary(error);
    EXPECT_EQ(afterEitherRead(resultOf(*session, "disconnect 2")), lost);
    EXPECT_EQ(notices, Lines());
}

TEST_F(OddServerTest, AKeepaliveIsSentAfterThirtySeconds) {
    const auto session = connectedToScript();
    for (const bool isBlocking : {true, false}) { // as a command leaves the session
#ifdef SSHSESSION_WRAPS_LIBSSH2
        session->keepAlive();
        session->mSessionQueue.sync([] {});
        wrapped().secondsAhead += 31;
        session->keepAlive();
        session->mSessionQueue.sync([] {});
        EXPECT_EQ(scripted.received(1), Lines{"keepalive"}) << isBlocking;
#else
        GTEST_SKIP() << "*** keepalives are not tested: the system's libssh2 has its own clock ***";
#endif
        EXPECT_EQ(resultOf(*session, "eof; close"), "0 (null) |  | ");
        EXPECT_EQ(scripted.received(1), Lines{"done"});
    }
    wrapped().secondsAhead = 0;
}

TEST_F(OddServerTest, SudoConversations) {
    const auto session = connectedToScript();
    const std::string end = "; out x; err e; status 3; eof; close";
    const auto succeeds = [&](const std::string &script, const std::string &password,
                              const Lines &sent) {
        converse(*session, script + end, password, sent, "3 (null) | x | e");
    };
    succeeds("success", "sesame", {});
    succeeds("prompt; read; success", "", {""});
    succeeds(R"(err 'a "lecture"\n'; prompt; read; success)", "p\u00e4\"$", {R"(p\xc3\xa4"$)"});
    succeeds("err 'lecture #SSHSession'; wait 0.02; err 'EnterPassword^'; read; "
             "out '#SSHSessionSudo'; wait 0.02; out 'Success^'; wait 0.02; out \\n",
             "sesame", {"sesame"});
    succeeds("prompt; read; prompt; read; prompt; read; prompt; read; success", "sesame",
             Lines(4, "sesame"));
    succeeds("prompt; read; read; success", "a\nb", {"a", "b"});
    converse(*session, "success; success; prompt; eof; close", "sesame", {},
             "0 (null) | #SSHSessionSudoSuccess^\n | #SSHSessionEnterPassword^");
    converse(*session, "out '#SSHSessionSudoSuccess^'; eof; close", "sesame", {}, "0 (null) |  | ");
    converse(*session, "prompt; read; success; read; read; close", "sesame",
             {"sesame", "data", "<end>"}, "0 (null) |  | ", "data\n");
}

TEST_F(OddServerTest, SudoGivesUp) {
    const std::string again = "prompt; read; err 'Sorry, try again.\\n'; ";
    const std::string gaveUp = "sudo: 3 incorrect password attempts\\n'; status 1; eof; close";
    converse(*connectedToScript(), again + again + "prompt; read; err '" + gaveUp, "sesame",
             Lines(3, "sesame"), notAccepted);
    // What else sudo may say is waited on, until the connection ends.
    converse(*connectedToScript(), R"(err '\xff)" + gaveUp + "; wait 0.3; disconnect 2 bye", "x",
             {}, lost);
    converse(*connectedToScript(), "err 'who?'; eof; close; wait 0.3; disconnect 11", "x", {},
             lost);
    EXPECT_EQ(notices, (Lines{"2 | bye | -", "in good order"}));
    EXPECT_EQ(log, Lines());
}

TEST_F(OddServerTest, SudoMayBeSilentForTenSeconds) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"wait 60", timedOut},
        {"status 1; eof; close", timedOut}, // the end of the channel changes nothing
        {"err 'a complaint'; wait 10.5; prompt; read; success; eof; close", "0 (null) |  | "}};
    std::vector<std::thread> threads;
    threads.reserve(cases.size());
    for (const auto &each : cases)
        threads.emplace_back([session = connectedToScript(), each] {
            const auto begin = std::chrono::steady_clock::now();
            EXPECT_EQ(resultOf(*session, each.first, "sesame"), each.second) << each.first;
            EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
        });
    for (std::thread &thread : threads)
        thread.join();
}
