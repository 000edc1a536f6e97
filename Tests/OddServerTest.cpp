#include "Tests/Support/ScriptedServer.h"

#include <fmt/format.h>

#include <thread>

namespace {

std::string text(const SSHDataRef &data) {
    return std::string(data->view());
}

class OddServerTest : public ScriptedServerTest {
  protected:
    std::shared_ptr<TestSession> connectedToScript() {
        auto session = sessionAs("password", "sesame");
        EXPECT_TRUE(session->start(&error)) << summary(error);
        return session;
    }

    // "status signal | output | error output", or why it failed.
    static std::string resultOf(TestSession &session, const SSHCommand &given) {
        const auto command = makeCommand(*given.command());
        command->setAdminPassword(given.adminPassword());
        command->setStdinData(given.stdinData());
        SSHErrorRef why;
        if (!session.execute(command, &why)) {
            EXPECT_FALSE(command->stdoutData() || command->stderrData() || command->exitSignal());
            EXPECT_FALSE(session.isConnected());
            return summary(why);
        }
        EXPECT_TRUE(session.isConnected());
        return fmt::format("{} {} | {} | {}", command->exitStatus(), *command->exitSignal(),
                           text(command->stdoutData()), text(command->stderrData()));
    }

    static std::string resultOf(TestSession &session, const std::string &script) {
        return resultOf(session, *makeCommand(script));
    }

    static std::string sudoResultOf(TestSession &session, const std::string &script,
                                    const std::string &password = "sesame") {
        const auto command = makeCommand(script);
        command->setAdminPassword(password);
        return resultOf(session, *command);
    }

    // What the server got on the command's standard input and before.
    Lines receivedUntilDone() {
        Lines lines;
        EXPECT_TRUE(eventually([&] {
            for (const std::string &line : scripted.received())
                lines.push_back(line);
            return !lines.empty() && lines.back() == "done";
        }));
        lines.pop_back();
        return lines;
    }

    struct SudoCase {
        std::string script;
        std::string password;
        Lines received;
        std::string result;
    };

    void check(TestSession &session, const SudoCase &each) {
        SCOPED_TRACE(each.script);
        scripted.received();
        EXPECT_EQ(sudoResultOf(session, each.script, each.password), each.result);
        EXPECT_EQ(receivedUntilDone(), each.received);
    }

    static std::string failed(const char *function, int code, const std::string &reason) {
        return fmt::format("libssh2ErrorDomain {} | An error occurred in {}. ({}) | {} | {}", code,
                           function, code, reason, reason);
    }
};

struct Disconnect {
    const char *sent;   // after "disconnect"
    const char *notice; // what the delegate is told
};

const std::vector<Disconnect> disconnects = {
    {"2 bye en", "2 | bye | en"},
    {"2 bye ''", "2 | bye | -"},
    {"2 '' de", "2 | - | de"},
    {"2 '' ''", "2 | - | -"},
    {"2", "2 | - | -"}, // the packet ends after the number
    {R"(2 'a\xffb' '\xfe')", "2 | a\uFFFDb | \uFFFD"},
    {"11 bye en", "in good order"},
    {"11", "in good order"},
};

const char *const timedOut = "libssh2ErrorDomain 0 | Dravella could not execute the SSH command. | "
                             "Password authentication for sudo timed out. | -";
const char *const notAccepted =
    "libssh2ErrorDomain 0 | Dravella could not execute the SSH command. | The SSH user was not "
    "able to use sudo. The password was not accepted. | -";

} // namespace

TEST_F(OddServerTest, EndsOfCommands) {
    const auto session = connectedToScript();
    for (const auto &[script, result] : std::vector<std::pair<std::string, std::string>>{
             {"out a; err b; status 3; eof; close", "3 (null) | a | b"},
             {"out a; signal TERM; eof; close", "0 TERM | a | "},
             {"status 7; signal FOO@bar; eof; close", "7 FOO@bar |  | "},
             {"out a; eof; close", "0 (null) | a | "}, // no status at all
             {"out a; status 5; close", "5 (null) | a | "},
             {"out a; status 5; eof", "5 (null) | a | "}, // never closed
             {"eof; wait 0.3; status 6; close", "6 (null) |  | "},
             {"close", "0 (null) |  | "},
             {R"(err '\xff\xfe'; eof; close)", "0 (null) |  | \xff\xfe"},
             {"out a; wait 0.3; err b; wait 0.3; out c; eof; close", "0 (null) | ac | b"}})
        EXPECT_EQ(resultOf(*session, script), result) << script;
    EXPECT_EQ(notices, Lines());
}

TEST_F(OddServerTest, Refusals) {
    auto session = connectedToScript();
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
    for (const Disconnect &each : disconnects) {
        SCOPED_TRACE(each.sent);
        const std::string disconnect = std::string("disconnect ") + each.sent;

        EXPECT_FALSE(sessionAs(disconnect)->start(&error)); // before any method
        EXPECT_FALSE(sessionAs("password " + disconnect, "sesame")->start(&error));
        EXPECT_EQ(notices, Lines(2, each.notice));
        EXPECT_THAT(summary(error), testing::HasSubstr("ssh user password. (-13)"));

        notices.clear();
        auto session = connectedToScript();
        EXPECT_EQ(resultOf(*session, "out a; wait 0.05; " + disconnect),
                  failed("libssh2_channel_read", LIBSSH2_ERROR_SOCKET_DISCONNECT,
                         "The socket was disconnected. transport read"));
        EXPECT_EQ(notices, Lines{each.notice});

        // Nobody reads while the session is idle: the next command meets the message.
        notices.clear();
        scripted.received();
        ASSERT_TRUE(session->start(&error)) << summary(error);
        EXPECT_EQ(resultOf(*session, "eof; close; wait 0.05; " + disconnect), "0 (null) |  | ");
        receivedUntilDone();
        EXPECT_TRUE(session->isConnected());
        EXPECT_EQ(notices, Lines());
        EXPECT_EQ(resultOf(*session, "out a"),
                  failed("libssh2_channel_open_session", LIBSSH2_ERROR_SOCKET_DISCONNECT,
                         "The socket was disconnected. Unexpected error"));
        EXPECT_EQ(notices, Lines{each.notice});
        notices.clear();
    }
}

TEST_F(OddServerTest, StopAfterADisconnectTellsNothing) {
    const auto session = connectedToScript();
    EXPECT_EQ(resultOf(*session, "eof; close; wait 0.05; disconnect 2 bye en"), "0 (null) |  | ");
    receivedUntilDone();
    EXPECT_TRUE(session->isConnected());
    session->keepAlive();
    session->stop();
    EXPECT_FALSE(session->isConnected());
    EXPECT_EQ(notices, Lines());
    session->setDelegate(nullptr); // nobody to tell
    EXPECT_TRUE(session->start(&error)) << summary(error);
    EXPECT_FALSE(session->execute(makeCommand("disconnect 2 bye en"), &error));
    EXPECT_EQ(notices, Lines());
}

TEST_F(OddServerTest, SudoConversations) {
    const auto session = connectedToScript();
    const std::string end = "; out x; err e; status 3; eof; close";
    const std::string result = "3 (null) | x | e";
    const std::string four = "prompt; read; prompt; read; prompt; read; prompt; read; success";
    const std::string split =
        "err 'lecture #SSHSession'; wait 0.02; err 'EnterPassword^'; read; "
        "out '#SSHSessionSudo'; wait 0.02; out 'Success^'; wait 0.02; out \\n";
    for (const SudoCase &each : std::vector<SudoCase>{
             {"success" + end, "sesame", {}, result},
             {"prompt; read; success" + end, "", {"line b''"}, result},
             {"err 'a \"lecture\"\\n'; prompt; read; success" + end,
              "p\u00e4 \"$'",
              {R"(line b'p\xc3\xa4 "$\'')"},
              result},
             {split + end, "sesame", {"line b'sesame'"}, result},
             {four + end, "sesame", Lines(4, "line b'sesame'"), result},
             {"prompt; read; read; success" + end, "a\nb", {"line b'a'", "line b'b'"}, result},
             {"success; success; wait 0.3; prompt; eof; close",
              "sesame",
              {},
              "0 (null) | #SSHSessionSudoSuccess^\n | #SSHSessionEnterPassword^"},
             {"out '#SSHSessionSudoSuccess^'; eof; close", "sesame", {}, "0 (null) |  | "}})
        check(*session, each);
    const auto command = makeCommand("prompt; read; success; read; read; eof; close");
    command->setAdminPassword("sesame");
    command->setStdinData("data\n");
    EXPECT_EQ(resultOf(*session, *command), "0 (null) |  | ");
    EXPECT_EQ(receivedUntilDone(), (Lines{"line b'sesame'", "line b'data'", "line b'<end>'"}));
}

TEST_F(OddServerTest, SudoGivesUp) {
    const std::string again = "prompt; read; err 'Sorry, try again.\\n'; ";
    const std::string gaveUp = "sudo: 3 incorrect password attempts\\n'; status 1; eof; close";
    const std::string lost = failed("libssh2_channel_read", LIBSSH2_ERROR_SOCKET_DISCONNECT,
                                    "The socket was disconnected. transport read");
    for (const SudoCase &each : std::vector<SudoCase>{
             {again + again + "prompt; read; err '" + gaveUp, "sesame", Lines(3, "line b'sesame'"),
              notAccepted},
             // What else sudo may say is waited on, until the connection ends.
             {R"(err '\xff)" + gaveUp + "; wait 0.3; disconnect 2 bye", "sesame", {}, lost},
             {"err 'ada is not in the sudoers file.'; eof; close; wait 0.3; disconnect 11",
              "sesame",
              {},
              lost}}) {
        const auto session = connectedToScript();
        check(*session, each);
    }
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
            EXPECT_EQ(sudoResultOf(*session, each.first), each.second) << each.first;
            EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
        });
    for (std::thread &thread : threads)
        thread.join();
}
