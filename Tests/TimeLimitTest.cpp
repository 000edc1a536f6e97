// What takes longer than the host allows ends with words of its own.
#include "Session/TimeLimit.h"
#include "Session/Question.h"
#include "Tests/Support/ScriptedServer.h"

#include <asio/ip/tcp.hpp>

#include <future>
#include <thread>

using asio::ip::tcp;
using std::chrono::milliseconds;

namespace {

const std::string couldNot =
    "libssh2ErrorDomain 110 | Dravella could not execute the SSH command. | The command has ";
const std::string mayRun = ". It may still be running on the server. | -";

struct Listener final : SSHSessionObserver {
    void didReceiveBanner(SSHSession & /*session*/, const std::string &banner) noexcept override {
        heard.push_back(banner);
    }
    Lines heard;
};

} // namespace

using TimeLimitTest = ScriptedServerTest;

TEST_F(TimeLimitTest, OfAStart) {
    asio::io_context context;
    const tcp::acceptor silent(context, {asio::ip::address_v4::loopback(), 0});
    const std::string start = "libssh2ErrorDomain 110 | Dravella could not make an SSH connection "
                              "to ";
    options.handshakeTimeout = milliseconds(200);
    EXPECT_FALSE(makeSession(silent.local_endpoint().port())->start(&error));
    EXPECT_EQ(summary(error), start + currentUser() +
                                  "@127.0.0.1. | The server has not finished the handshake within "
                                  "0.2 seconds. | -");
    options.handshakeTimeout = std::chrono::seconds(60);
    options.logInTimeout = std::chrono::seconds(1);
    EXPECT_FALSE(sessionAs("password silent", "sesame")->start(&error));
    EXPECT_EQ(summary(error), start + "password silent@127.0.0.1. | The log-in has not finished "
                                      "within 1 second. | -");

    // None counts beyond its stage, nor does the user's time.
    const auto session = sessionAs("password", "sesame");
    ASSERT_TRUE(session->start(&error)) << summary(error);
    EXPECT_EQ(resultOf(*session, "wait 1.2; eof; close"), "0 (null) |  | ");
    session->stop();
    const auto connection = session->beginConnection();
    const SSHEngine::TimeLimit limit(*connection, SSHEngine::Ending::SlowLogIn);
    EXPECT_TRUE(
        askOnMainThread(*connection, [] { std::this_thread::sleep_for(milliseconds(1200)); }));
    EXPECT_FALSE(connection->isShutDown());
    EXPECT_TRUE(eventually([&] { return connection->isShutDown(); }));
    EXPECT_EQ(connection->ending(), SSHEngine::Ending::SlowLogIn);
}

TEST_F(TimeLimitTest, OfACommand) {
    const auto resultWithin = [&](milliseconds length, milliseconds silence,
                                  const std::string &script,
                                  const std::optional<std::string> &password = std::nullopt) {
        options.commandTimeout = length;
        options.silenceTimeout = silence;
        const auto session = sessionAs("password", "sesame");
        EXPECT_TRUE(session->start(&error)) << summary(error);
        return resultOf(*session, script, password);
    };
    const milliseconds none(0);
    const milliseconds short_(300);
    const std::string talks = "out a; wait 0.4; out b; wait 0.4; out c; wait 0.4; ";
    EXPECT_EQ(resultWithin(short_, none, talks + "eof; close"),
              couldNot + "not ended within 0.3 seconds" + mayRun);
    EXPECT_EQ(resultWithin(short_, none, "eof; wait 30", "sesame"),
              couldNot + "not ended within 0.3 seconds" + mayRun);
    EXPECT_EQ(resultWithin(none, milliseconds(1000), talks + "eof; close"), "0 (null) | abc | ");
    EXPECT_EQ(resultWithin(none, short_, "out a; eof; wait 30"), // its end is waited for
              couldNot + "neither sent nor taken anything for 0.3 seconds" + mayRun);

    // From its turn on, and its own alone.
    options = {.commandTimeout = milliseconds(1200)};
    const auto session = sessionAs("password", "sesame");
    ASSERT_TRUE(session->start(&error)) << summary(error);
    scripted.received();
    for (const auto &[script, result] : std::vector<std::pair<std::string, std::string>>{
             {"read; wait 0.8; eof; close", "0 (null) |  | "},
             {"read; wait 30", "libssh2ErrorDomain 0 | Dravella could not execute the SSH command. "
                               "| The session is not connected. | -"}}) {
        const auto run = [&, &script = script] { // as clang 14 will have it
            return resultOf(*session, script, std::nullopt, "x\n");
        };
        auto first = std::async(std::launch::async, run);
        EXPECT_EQ(scripted.received(1).front(), "line b'x'");
        EXPECT_EQ(run(), result);
        EXPECT_EQ(first.get() == result, result.starts_with("0"));
        scripted.received(result.starts_with("0") ? 3 : 0); // the rest of both
    }
}

TEST_F(TimeLimitTest, BannersAreTold) {
    const std::string file = home.directory.path("banner");
    std::ofstream(file) << "Hands off!\n\xff\n";
    serverWith("Banner " + file + "\n");
    const auto heard = [&](bool succeeds) {
        const auto listener = std::make_shared<Listener>();
        const auto session = makeSession(mServer->port(), std::nullopt, key());
        session->addObserver(listener);
        EXPECT_EQ(session->start(&error), succeeds) << summary(error);
        return listener->heard;
    };
#if LIBSSH2_VERSION_NUM >= 0x010b00
    const Lines all = {"Hands off!\n\uFFFD\n"};
#else
    const Lines all;
#endif
    EXPECT_EQ(heard(false), Lines());
    options.tellsBanners = true;
    EXPECT_EQ(heard(false), all);
    mServer->authorize(key());
    EXPECT_EQ(heard(true), all);
#ifdef SSHSESSION_WRAPS_LIBSSH2 // others lose what comes with an answer
    mServer.reset();
    const auto listener = std::make_shared<Listener>();
    const auto session = sessionAs("password banner 'Last login: never'", "sesame");
    session->addObserver(listener);
    EXPECT_TRUE(session->start(&error)) << summary(error);
    EXPECT_EQ(listener->heard, Lines{"Last login: never\n"});
#endif
}
