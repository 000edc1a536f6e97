#include "Tests/Support/SessionTest.h"

#include "Commands/ChannelRun.h"

#include <random>
#include <thread>

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
    struct Case {
        const char *text;
        const char *output;
        const char *errorOutput;
        int status;
        const char *signal;
    };
    for (const Case &each : std::vector<Case>{
             {"true", "", "", 0, "(null)"},
             {"", "", "", 0, "(null)"},
             {"printf out; printf err >&2; exit 3", "out", "err", 3, "(null)"},
             {"echo \"quo'ted\" '$HOME' é", "quo'ted $HOME é\n", "", 0, "(null)"},
             {"printf 'a\\000b'", "a", "", 0, "(null)"}, // completed below: the table holds C texts
             {"printf before; kill -KILL $$", "before", "", 0, "KILL"},
             {"kill -TERM $$", "", "", 0, "TERM"},
             {"exec >&- 2>&-; sleep 0.2; exit 7", "", "", 7, "(null)"}, // the status comes late
             {"exit 255", "", "", 255, "(null)"}}) {
        SCOPED_TRACE(each.text);
        const auto command = makeCommand(each.text);
        ASSERT_TRUE(session->execute(command, &error)) << summary(error);
        EXPECT_STREQ(std::string(command->stdoutData()->view()).c_str(), each.output);
        EXPECT_EQ(command->stderrData()->view(), each.errorOutput);
        EXPECT_EQ(command->exitStatus(), each.status);
        EXPECT_EQ(*command->exitSignal(), each.signal);
    }
    const auto zero = makeCommand("printf 'a\\000b'");
    ASSERT_TRUE(session->execute(zero, &error));
    EXPECT_EQ(zero->stdoutData()->view(), std::string_view("a\0b", 3));
}

TEST_F(CommandTest, CarriesLargeBinaryDataBothWays) {
    const auto session = connected();
    const std::string bytes = randomBytes(20 << 20);
    const auto command = makeCommand("tee /dev/stderr");
    command->setStdinData(bytes);
    ASSERT_TRUE(session->execute(command, &error)) << summary(error);
    EXPECT_TRUE(command->stdoutData()->view() == bytes);
    EXPECT_TRUE(command->stderrData()->view() == bytes);
    EXPECT_EQ(command->exitStatus(), 0);
}

// More than the window is left when the command ends: nobody will ever take it.
TEST_F(CommandTest, EndsWithACommandThatDoesNotReadItsInput) {
    const auto session = connected();
    const std::string bytes = randomBytes(8 << 20);
    for (const char *text : {"exit 4", "head -c 5; exit 4", "exec <&-; sleep 0.3; exit 4"}) {
        const auto command = makeCommand(text);
        command->setStdinData(bytes);
        ASSERT_TRUE(session->execute(command, &error)) << text << summary(error);
        EXPECT_EQ(command->exitStatus(), 4) << text;
        EXPECT_EQ(command->stdoutData()->view(), *text == 'h' ? bytes.substr(0, 5) : "");
    }
    const auto after = makeCommand("cat");
    after->setStdinData("still usable");
    ASSERT_TRUE(session->execute(after, &error)) << summary(error);
    EXPECT_EQ(after->stdoutData()->view(), "still usable");
}

TEST_F(CommandTest, TheReadAndWriteStepsSayWhetherThereIsMore) {
    const auto session = connected();
    session->mSessionQueue.sync([&] {
        LIBSSH2_SESSION *handle = session->_session().get();
        LIBSSH2_CHANNEL *channel = libssh2_channel_open_session(handle);
        ASSERT_EQ(libssh2_channel_exec(channel, "head -c 3; echo >&2 end"), 0);
        libssh2_session_set_blocking(handle, 0);
        SSHPlatform::ByteBuffer input;
        SSHPlatform::ByteBuffer output;
        bool more = true;
        EXPECT_TRUE(session->_writeToChannel(channel, input, &more, &error) && !more);
        input.append("abc");
        EXPECT_TRUE(session->_writeToChannel(channel, input, &more, &error) && more);
        EXPECT_TRUE(input.empty());
        EXPECT_TRUE(session->_writeToChannel(channel, input, &more, &error) && !more);
        EXPECT_TRUE(eventually([&] {
            EXPECT_TRUE(session->_readFromChannel(channel, output, false, &more, &error));
            return !more;
        }));
        EXPECT_EQ(output.view(), "abc");
        EXPECT_TRUE(session->_readFromChannel(channel, output, true, &more, &error) && !more);
        EXPECT_EQ(output.view(), "abcend\n");
        libssh2_channel_free(channel);
        // A closed channel refuses to be written to, and the error says so under its usual name.
        channel = libssh2_channel_open_session(handle);
        while (!channel && libssh2_session_last_errno(handle) == LIBSSH2_ERROR_EAGAIN)
            channel = libssh2_channel_open_session(handle);
        while (libssh2_channel_send_eof(channel) == LIBSSH2_ERROR_EAGAIN)
            continue;
        input.append("x");
        more = true;
        EXPECT_FALSE(session->_writeToChannel(channel, input, &more, &error));
        EXPECT_TRUE(more);
        EXPECT_EQ(*error->localizedDescription(),
                  "An error occurred in libssh2_channel_read_stderr. (" +
                      std::to_string(error->code()) + ")");
        EXPECT_FALSE(session->_writeToChannel(channel, input, &more, nullptr));
    });
}

TEST_F(CommandTest, AFailureDisconnectsAndLeavesTheRecordAlone) {
    const auto command = makeCommand("echo first");
    const auto idle = makeSession(1);
    const std::string notConnected = "libssh2ErrorDomain 0 | Dravella could not execute the SSH "
                                     "command. | The session is not connected. | -";
    EXPECT_FALSE(idle->execute(command, &error));
    EXPECT_EQ(summary(error), notConnected);
    EXPECT_FALSE(idle->execute(command, nullptr));

    const auto session = connected();
    ASSERT_TRUE(session->execute(command, &error));
    EXPECT_FALSE(session->execute(nullptr, &error));
    EXPECT_THAT(summary(error), testing::HasSubstr("There is no command."));
    EXPECT_FALSE(session->isConnected());
    ASSERT_TRUE(session->start(&error)) << summary(error);

    // The server's process for this connection goes away in the middle of the command.
    command->setCommand("kill -KILL $PPID; sleep 10");
    EXPECT_FALSE(session->execute(command, &error));
    EXPECT_LT(error->code(), 0);
    EXPECT_THAT(summary(error), testing::HasSubstr("An error occurred in libssh2_channel_read"));
    EXPECT_EQ(command->stdoutData()->view(), "first\n");
    EXPECT_FALSE(session->isConnected());
    EXPECT_EQ(session->mSocket, 0);
    EXPECT_EQ(session->mKeepAliveTimer, nullptr);
    EXPECT_FALSE(session->execute(command, &error));
    EXPECT_EQ(summary(error), notConnected);
}

TEST_F(CommandTest, TwoSessionsRunSideBySide) {
    const auto first = connected();
    const auto second = connected();
    const std::string fifo = home.directory.path("fifo");
    require({"mkfifo", fifo});
    const auto reads = makeCommand("cat " + fifo);
    std::thread reader([&] { EXPECT_TRUE(first->execute(reads, nullptr)); });
    const auto writes = makeCommand("echo across > " + fifo);
    EXPECT_TRUE(second->execute(writes, &error)) << summary(error);
    reader.join();
    EXPECT_EQ(reads->stdoutData()->view(), "across\n");
}
