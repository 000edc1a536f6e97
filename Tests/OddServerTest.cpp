#include "Tests/Support/ScriptedServer.h"

#include <fmt/format.h>

#include <future>
#include <regex>

namespace {

std::string failed(const char *function, int code, const std::string &reason) {
    return fmt::format("libssh2ErrorDomain {} | An error occurred in {}. ({}) | {} | {}", code,
                       function, code, reason, reason);
}

const std::string ended = "3 (null) | x | e";
const std::string done = "0 (null) |  | ";
const std::string lost =
    failed("libssh2_channel_read", -13, "The socket was disconnected. transport read");
const std::string couldNot =
    "libssh2ErrorDomain 0 | Dravella could not execute the SSH command. | ";

class OddServerTest : public ScriptedServerTest {
  protected:
    // Of a command, on a new connection where there is none.
    std::string result(const std::string &script,
                       const std::optional<std::string> &password = std::nullopt,
                       const std::string &input = "") {
        if (!session->isConnected()) {
            EXPECT_TRUE(session->start(&error)) << summary(error);
            scripted.received(2); // a keepalive and the password
        }
        // Whichever stream is read when a disconnect arrives gives the error its name.
        return std::regex_replace(resultOf(*session, script, password, input),
                                  std::regex("channel_read_stderr"), "channel_read");
    }

    void sshSessionDisconnected(SSHSession &from, const SSHErrorRef &why) noexcept override {
        ScriptedServerTest::sshSessionDisconnected(from, why);
        if (std::exchange(command, nullptr))
            session.reset();
    }

    std::shared_ptr<TestSession> session = sessionAs("password", "sesame");
    std::shared_ptr<SSHCommand> command;
};

} // namespace

TEST_F(OddServerTest, EndsOfCommands) {
    for (const auto &[script, expected] : std::vector<std::pair<std::string, std::string>>{
             {"out a; err b; status 3; eof; close", "3 (null) | a | b"},
             {"out a; status 7; signal FOO@bar; eof; close", "7 FOO@bar | a | "},
             {"out a; eof; closed; wait 0.1; status 5; close", "5 (null) | a | "}, // only then
             {"eof; wait 1.5; status 6; close", "6 (null) |  | "},
             {"close", done},
             {R"(err '\xff\xfe'; eof; close)", "0 (null) |  | \xff\xfe"},
             {"out a; wait 0.3; err b; wait 0.3; out c; eof; close", "0 (null) | ac | b"},
             {"refuse 4 'no more'; eof; close", done},
             {"out a", failed("libssh2_channel_open_session", LIBSSH2_ERROR_CHANNEL_FAILURE,
                              "Error -21. Channel open failure (resource shortage)")},
             {"out a; status 5; eof; wait 0.1; disconnect 2", "5 (null) | a | , cut off"}})
        EXPECT_EQ(result(script), expected) << script;
    EXPECT_EQ(notices, Lines{"2 | - | -"});
}

TEST_F(OddServerTest, DisconnectsAreToldOnce) {
    for (const auto &[sent, notice] : std::vector<std::pair<std::string, std::string>>{
             {"2 bye en", "2 | bye | en"},
             {"2 '' de", "2 | - | de"},
             {"2", "2 | - | -"}, // the packet ends after the number
             {R"(2 'a\xffb' '\xfe')", "2 | a\uFFFDb | \uFFFD"},
             {"11 bye en", "in good order"}}) {
        SCOPED_TRACE(sent);
        const std::string disconnect = "disconnect " + sent;
        EXPECT_FALSE(sessionAs("password " + disconnect, "sesame")->start(&error));
        EXPECT_THAT(summary(error), testing::HasSubstr("ssh user password. (-13)"));
        EXPECT_EQ(result("out a; wait 0.05; " + disconnect), lost);
        // Nobody reads while the session is idle: the next command meets the message.
        EXPECT_EQ(result("eof; close; closed; " + disconnect), done);
        EXPECT_EQ(scripted.received(1), Lines{"done"});
        EXPECT_EQ(std::exchange(notices, {}), Lines(2, notice));
        EXPECT_EQ(result("out a"), failed("libssh2_channel_open_session", -13,
                                          "The socket was disconnected. Unexpected error"));
        EXPECT_EQ(std::exchange(notices, {}), Lines{notice});
    }
    EXPECT_EQ(result("eof; close; closed; disconnect 2"), done);
    scripted.received(1);
    session->keepAlive();
    session->stop();               // tells nothing
    session->setDelegate(nullptr); // nobody to tell
    EXPECT_EQ(result("disconnect 2"), lost);
    EXPECT_EQ(notices, Lines());
}

TEST_F(OddServerTest, ADelegateIsNotCalledOnceItWasCleared) {
    struct Slow final : SSHSessionDelegate {
        void sshSessionDisconnected(SSHSession & /*session*/,
                                    const SSHErrorRef & /*why*/) noexcept override {
            isCalled.set_value();
            EXPECT_EQ(isCleared.get_future().wait_for(std::chrono::milliseconds(50)),
                      std::future_status::timeout);
        }
        std::promise<void> isCalled;
        std::promise<void> isCleared;
    } slow;
    ASSERT_TRUE(session->start(&error)) << summary(error);
    session->setDelegate(&slow);
    auto run = std::async(std::launch::async, [&] { return result("disconnect 2"); });
    slow.isCalled.get_future().wait();
    session->setDelegate(nullptr);
    slow.isCleared.set_value();
    EXPECT_EQ(run.get(), lost);
}

TEST_F(OddServerTest, ADelegateMayLetGoOfSessionAndCommand) {
    ASSERT_TRUE(session->start(&error)) << summary(error);
    command = makeCommand("out a; disconnect 2");
    EXPECT_FALSE(session->execute(command, &error));
    EXPECT_THAT(summary(error), testing::HasSubstr("The socket was disconnected."));
    EXPECT_FALSE(command || session);
}

// What the server is sent, and what becomes of the command, through sudo where there is a password.
TEST_F(OddServerTest, Conversations) {
    struct Case {
        std::string script;
        Lines sent;
        std::string result = ended;
        std::optional<std::string> password = "sesame";
        std::string input = "";
    };
    const std::string end = "; out x; err e; status 3; eof; close";
    const std::string again = "prompt; read; err 'Sorry, try again.\\n'; ";
    const std::string gaveUp = "sudo: 3 incorrect password attempts\\n'; status 1; eof; close";
    const std::string couldNotSudo =
        couldNot + "The SSH user was not able to use sudo. The password was not accepted. | -";
    const Lines input = {"data", "<end>"};
    for (const Case &each : std::vector<Case>{
             // Both outputs may end before the input is taken.
             {"eof; wait 0.1; read; read; close", input, done, std::nullopt, "data\n"},
             {"out '#SSHSessionSudoSuccess^'; eof; read; read; close", input, done, "sesame",
              "data\n"},
             {"success" + end, {}},
             {"prompt; read; success" + end, {""}, ended, ""},
             {R"(err 'a "lecture"\n'; prompt; read; success)" + end,
              {R"(p\xc3\xa4"$)"},
              ended,
              "p\u00e4\"$"},
             {again + again + again + "prompt; read; success" + end, Lines(4, "sesame")},
             {"prompt; read; read; success" + end, {"a", "b"}, ended, "a\nb"},
             {"success; success; prompt; eof; close",
              {},
              "0 (null) | #SSHSessionSudoSuccess^\n | #SSHSessionEnterPassword^"},
             {again + again + "prompt; read; err '" + gaveUp, Lines(3, "sesame"), couldNotSudo},
             // The end of the channel changes nothing.
             {"status 1; eof; close",
              {},
              couldNot + "Password authentication for sudo timed out. | -"},
             // What else sudo may say is waited on, until the connection ends.
             {R"(err '\xff)" + gaveUp + "; wait 0.3; disconnect 2 bye", {}, lost}}) {
        SCOPED_TRACE(each.script);
        EXPECT_EQ(result(each.script, each.password, each.input), each.result);
        Lines expected;
        for (const std::string &line : each.sent)
            expected.push_back("line b'" + line + "'");
        expected.emplace_back("done");
        EXPECT_EQ(scripted.received(expected.size()), expected);
    }
    EXPECT_EQ(notices, Lines{"2 | bye | -"});
}
