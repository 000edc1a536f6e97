#include "Tests/Support/Relay.h"
#include "Tests/Support/SessionTest.h"
#include "Tests/Support/Wrapped.h"

#include <random>
#include <thread>

using namespace std::string_literals;
using CommandTest = SessionTest;

namespace {

std::string randomBytes(std::size_t count) {
    std::mt19937 random(7);
    std::string bytes(count, '\0');
    for (char &byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

} // namespace

TEST_F(CommandTest, CollectsOutputStatusAndSignal) {
    const auto session = connected();
    for (const auto &[text, result] : std::vector<std::pair<const char *, std::string>>{
             {"true", "0 (null) |  | "},
             {"", "0 (null) |  | "},
             {"printf out; printf err >&2; exit 3", "3 (null) | out | err"},
             {"echo \"quo'ted\" '$HOME' é", "0 (null) | quo'ted $HOME é\n | "},
             {"printf 'a\\000b'", "0 (null) | a\0b | "s},
             {"printf before; kill -KILL $$", "0 KILL | before | "},
             {"exec >&- 2>&-; sleep 4; exit 255", "255 (null) |  | "}}) // the status comes late
        EXPECT_EQ(resultOf(*session, text), result) << text;
    EXPECT_EQ(wrapped().plainPauses, 0) << "a command paused instead of waiting for the server";
}

// What a command leaves behind would show only in a session of thousands.
TEST_F(CommandTest, ACommandLeavesNoMemoryBehind) {
    const auto session = connected();
    const auto usedAfter = [&](int commands) {
        for (int i = 0; i < commands; ++i)
            EXPECT_EQ(resultOf(*session, "true"), "0 (null) |  | ");
        return heapSize();
    };
    const std::size_t before = usedAfter(20);
    EXPECT_LE(usedAfter(100), before + 100 * 64);
}

TEST_F(CommandTest, InputReachesACommandWhoseOutputsHaveEnded) {
    const std::string file = home.directory.path("file");
    EXPECT_EQ(resultOf(*connected(), "exec cat > " + file + " 2>&1", std::nullopt, "restore"),
              "0 (null) |  | ");
    EXPECT_EQ(contentOf(file), "restore");
}

// More than the socket takes is left when the command ends.
TEST_F(CommandTest, OnALinkThatTakesAPacketOnlyInPieces) {
    const Relay relay(
        server().port(),
        {.bytesPerSecond = 10'000'000, .delay = std::chrono::milliseconds(5), .bufferSize = 4096});
    const auto session = makeSession(relay.port(), std::nullopt, key());
    ASSERT_TRUE(session->start(&error)) << summary(error);
    const std::string bytes = randomBytes(8 << 20);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(resultOf(*session, "sleep 0.3; exit 4", std::nullopt, bytes), "4 (null) |  | ");
        session->keepAlive();
        EXPECT_EQ(resultOf(*session, "wc -c", std::nullopt, bytes.substr(0, 200'000)),
                  "0 (null) | 200000\n | ");
    }
    EXPECT_TRUE(resultOf(*session, "tee /dev/stderr", std::nullopt, bytes) ==
                "0 (null) | " + bytes + " | " + bytes);
}

TEST_F(CommandTest, CarriesLargeBinaryDataBothWays) {
    const std::string bytes = randomBytes(20 << 20);
    EXPECT_TRUE(resultOf(*connected(), "tee /dev/stderr", std::nullopt, bytes) ==
                "0 (null) | " + bytes + " | " + bytes);
}

// More than the window is left when the command ends: nobody will ever take it.
TEST_F(CommandTest, EndsWithACommandThatDoesNotReadItsInput) {
    const auto session = connected();
    const std::string bytes = randomBytes(8 << 20);
    const std::string five = "4 (null) | " + bytes.substr(0, 5) + " | ";
    for (const auto &[text, result] : std::vector<std::pair<const char *, std::string>>{
             {"exit 4", "4 (null) |  | "},
             {"head -c 5; exit 4", five},
             {"exec <&-; sleep 0.3; exit 4", "4 (null) |  | "},
             {"head -c 5; exit 4", five}}) // the session is as good as before
        EXPECT_EQ(resultOf(*session, text, std::nullopt, bytes), result) << text;
}

TEST_F(CommandTest, AFailureToWriteGoesByTheNameOfAnotherFunction) {
    const auto session = connected();
    session->mSessionQueue.sync([&] {
        const auto connection = session->connection();
        LIBSSH2_CHANNEL *const channel = libssh2_channel_open_session(connection->session());
        ASSERT_EQ(libssh2_channel_send_eof(channel), 0);
        SSHPlatform::ByteBuffer input("x");
        bool more = true;
        EXPECT_FALSE(session->_writeToChannel(*connection, channel, input, &more, nullptr));
        EXPECT_FALSE(session->_writeToChannel(*connection, channel, input, &more, &error));
        EXPECT_TRUE(more);
        EXPECT_EQ(error->localizedDescription(),
                  "An error occurred in libssh2_channel_read_stderr. (-27)");
    });
}

TEST_F(CommandTest, AFailureDisconnectsAndLeavesTheRecordAlone) {
    const std::string notConnected = "libssh2ErrorDomain 0 | Dravella could not execute the SSH "
                                     "command. | The session is not connected. | -";
    EXPECT_EQ(resultOf(*makeSession(1), "true"), notConnected);
    const auto session = connected();
    EXPECT_FALSE(session->execute(nullptr, &error));
    EXPECT_THAT(summary(error), testing::HasSubstr("There is no command."));
    EXPECT_FALSE(session->isConnected());
    const auto command = makeCommand("echo first");
    ASSERT_TRUE(session->start(&error) && session->execute(command, &error)) << summary(error);

    // The server's process for this connection goes away in the middle of the command.
    command->setCommand("kill -KILL $PPID; sleep 10");
    EXPECT_FALSE(session->execute(command, &error));
    EXPECT_LT(error->code(), 0);
    EXPECT_THAT(summary(error), testing::HasSubstr("An error occurred in libssh2_channel_read"));
    EXPECT_EQ(command->stdoutData()->view(), "first\n");
    EXPECT_TRUE(session->isIdle());
    EXPECT_EQ(resultOf(*session, "true"), notConnected);
}

TEST_F(CommandTest, TwoSessionsRunSideBySide) {
    const auto first = connected();
    const auto second = connected();
    const std::string fifo = home.directory.path("fifo");
    require({"mkfifo", fifo});
    std::thread reader([&] { EXPECT_EQ(resultOf(*first, "cat " + fifo), "0 (null) | a\n | "); });
    EXPECT_EQ(resultOf(*second, "echo a > " + fifo), "0 (null) |  | ");
    reader.join();
}
