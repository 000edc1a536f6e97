// Output that a sink takes while it comes, and input that is read while it is wanted.
#include "Tests/Support/ScriptedServer.h"
#include "Tests/Support/Wrapped.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <thread>

namespace {

using std::chrono::milliseconds;

class Pipe {
  public:
    Pipe() { EXPECT_EQ(::pipe2(mEnds.data(), O_CLOEXEC), 0); }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;
    ~Pipe() {
        close();
        ::close(mEnds[0]);
    }
    int end() const { return mEnds[0]; }
    void write(std::string_view text) const {
        EXPECT_EQ(::write(mEnds[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void close() {
        if (mEnds[1] != -1)
            ::close(std::exchange(mEnds[1], -1));
    }

  private:
    std::array<int, 2> mEnds{};
};

// What a sink was given: "out: " or "err: " before what came of each stream in a row.
struct Heard {
    SSHOutputSink sink() {
        return [this](SSHCommandStream stream, std::string_view piece) {
            (stream == SSHCommandStream::Output ? out : err) += piece;
            if (std::exchange(last, stream) != stream || text.empty())
                text += stream == SSHCommandStream::Output ? "out: " : "err: ";
            text += piece;
            threads.insert(std::this_thread::get_id());
            return react(piece);
        };
    }

    std::string out, err, text;
    std::set<std::thread::id> threads;
    std::function<std::optional<std::size_t>(std::string_view)> react = [](auto piece) {
        return piece.size();
    };

  private:
    SSHCommandStream last{};
};

class FlowTest : public SessionTest {
  protected:
    // As resultOf; what the sink heard is elsewhere.
    std::string run(const std::shared_ptr<SSHCommand> &command, const SSHOutputSink &sink) {
        command->setOutputSink(sink);
        if (!session->execute(command, &error))
            return summary(error) + (session->isConnected() ? ", still connected" : "");
        EXPECT_TRUE(command->stdoutData()->empty() && command->stderrData()->empty());
        return fmt::format("{} {}", command->exitStatus(), *command->exitSignal());
    }
    void reconnect() { ASSERT_TRUE(session->start(&error)) << summary(error); }

    const std::shared_ptr<TestSession> session = connected();
    const std::string cancelled =
        "libssh2ErrorDomain 125 | Dravella could not execute the SSH command. | The command was "
        "cancelled. It may still be running on the server. | -";
};

} // namespace

// Each piece is heard before the command makes the next one, and the input answers the output.
TEST_F(FlowTest, BothWaysInTheOrderOfArrival) {
    Pipe input;
    Heard heard;
    heard.react = [&](std::string_view piece) {
        if (piece == "one\n")
            input.write("two\n");
        if (heard.err == "two\n")
            input.close();
        return piece.size();
    };
    const auto command = makeCommand("echo one; read a; echo $a >&2; cat; echo three; exit 3");
    command->setStdinDescriptor(input.end());
    wrapped().inject();
    EXPECT_EQ(run(command, heard.sink()), "3 (null)");
    EXPECT_EQ(heard.text, "out: one\nerr: two\nout: three\n");
    EXPECT_EQ(heard.threads, std::set{std::this_thread::get_id()});
    EXPECT_EQ(wrapped().calls()["libssh2_channel_send_eof"], 1) << "also of a plain session";
    const SSHCommandFacts facts = session->facts().command;
    EXPECT_EQ(std::tuple(facts.outputBegin, facts.errorEnd, facts.outputBytes, facts.inputBytes,
                         facts.isHeldUp),
              std::tuple("one\nthree\n", "two\n", 14U, 4U, false));
}

// Of files, of what never ends, and of what was given besides.
TEST_F(FlowTest, InputThatIsRead) {
    std::string bytes(3 << 20, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i + i / 256);
    const std::string file = home.directory.write("bytes", bytes);
    const std::string empty = home.directory.write("empty", "");
    for (const auto &[path, text, out] :
         std::vector<std::tuple<std::string, const char *, std::string>>{
             {file, "cat", bytes},
             {empty, "cat", ""},
             {"/dev/zero", "head -c 5", std::string(5, '\0')}}) {
        SCOPED_TRACE(path);
        const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        const auto command = makeCommand(text);
        command->setStdinDescriptor(descriptor);
        command->setStdinData("in vain");
        Heard heard;
        EXPECT_EQ(run(command, heard.sink()), "0 (null)");
        EXPECT_TRUE(heard.out == out) << heard.out.size();
        ::close(descriptor);
    }
    // A source takes the place of a descriptor. Output that nobody takes is held as ever.
    auto command = makeCommand("cat; exec sleep 0.2");
    Lines pieces = {"", "b", "a"};
    command->setStdinDescriptor(-2);
    command->setStdinSource([&](char *room, std::size_t size) {
        EXPECT_GE(size, 1U);
        const std::string piece = pieces.back();
        pieces.pop_back();
        std::copy(piece.begin(), piece.end(), room);
        return piece.size();
    });
    ASSERT_TRUE(session->execute(command, &error)) << summary(error);
    EXPECT_EQ(command->stdoutData()->view(), "ab");
    EXPECT_EQ(pieces, Lines());

    command->setStdinSource([](auto...) { return std::nullopt; });
    EXPECT_EQ(run(command, nullptr), cancelled);
    reconnect();
    command->setStdinSource(nullptr);
    EXPECT_EQ(run(command, nullptr),
              "libssh2ErrorDomain 9 | Dravella could not execute the SSH command. | The command's "
              "input could not be read. Error: Bad file descriptor (9). | -");
    EXPECT_EQ(error->cause(), SSHErrorCause::InputUnreadable);
}

// It takes what it likes, and sees everything once, in its order.
TEST_F(FlowTest, ASinkTakesAPieceInParts) {
    std::string bytes(400'000, '\0');
    std::generate(bytes.begin(), bytes.end(),
                  [i = 0U]() mutable { return static_cast<char>(i++ >> 5U); });
    const auto command = makeCommand("tee /dev/stderr");
    command->setStdinData(bytes);
    std::array<std::string, 2> heard;
    std::size_t calls = 0;
    EXPECT_EQ(run(command,
                  [&](SSHCommandStream stream, std::string_view piece) {
                      const std::size_t taken =
                          ++calls % 5 == 0 ? 0 : std::min<std::size_t>(piece.size(), 7000);
                      heard.at(static_cast<std::size_t>(stream)) += piece.substr(0, taken);
                      return taken;
                  }),
              "0 (null)");
    EXPECT_TRUE(heard[0] == bytes && heard[1] == bytes)
        << heard[0].size() << ' ' << heard[1].size();
}

TEST_F(FlowTest, ASinkEndsTheRun) {
    Heard heard;
    heard.react = [&](auto) { return std::nullopt; };
    EXPECT_EQ(run(makeCommand("echo first; exec yes"), heard.sink()), cancelled);
    EXPECT_EQ(heard.threads.size(), 1U);
    EXPECT_EQ(heard.text.substr(0, 11), "out: first\n");

    // One that takes nothing more does not keep others from it.
    reconnect();
    heard.react = [&](auto) {
        session->cancel();
        return std::optional<std::size_t>(0);
    };
    EXPECT_EQ(run(makeCommand("exec yes"), heard.sink()), cancelled);
}

using PausedFlowTest = ScriptedServerTest;

// What the server asks meanwhile is answered, and no limit on its silence counts the pause. All
// that it said before it hung up is heard.
TEST_F(PausedFlowTest, ASinkThatHasNoRoomHoldsUpNothingElse) {
    options.silenceTimeout = milliseconds(300);
    const auto session = sessionAs("password", "sesame");
    ASSERT_TRUE(session->start(&error)) << summary(error);
    scripted.received(1);
    const auto begin = std::chrono::steady_clock::now();
    const auto lasts = [&](milliseconds time) {
        return std::chrono::steady_clock::now() - begin < time;
    };
    bool isAnswered = false;
    std::array<std::string, 2> heard;
    const auto command = makeCommand("out a; err b; wait 0.4; ask; "
                                     "status 7; eof; close; wait 0.1; disconnect 11");
    command->setOutputSink([&](SSHCommandStream stream,
                               std::string_view piece) -> std::optional<std::size_t> {
        std::this_thread::sleep_for(milliseconds(20));
        EXPECT_TRUE(session->facts().command.isHeldUp);
        isAnswered = isAnswered || scripted.received() == Lines{"done"};
        if (!isAnswered || lasts(milliseconds(900)))
            return lasts(std::chrono::seconds(20)) ? std::optional<std::size_t>(0) : std::nullopt;
        heard.at(static_cast<std::size_t>(stream)) += piece;
        return piece.size();
    });
    EXPECT_TRUE(session->execute(command, &error)) << summary(error);
    EXPECT_THAT(heard, testing::ElementsAre("a", "b"));
    EXPECT_EQ(std::pair(command->exitStatus(), command->isClosedInOrder()), std::pair(7, true));
}

TEST_F(FlowTest, MemoryStaysConstant) {
    if (heapSize() == 0)
        GTEST_SKIP() << "*** memory is not tested: the heap is a sanitizer's ***";
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_AS, &before), 0);
    const rlimit limit = {pages * static_cast<std::size_t>(::getpagesize()) + 20'000'000,
                          before.rlim_max};
    const int zeros = ::open("/dev/zero", O_RDONLY | O_CLOEXEC);
    for (const char *text : {"head -c 100000000 /dev/zero", "head -c 100000000"}) {
        const auto command = makeCommand(text);
        command->setStdinDescriptor(zeros);
        std::size_t size = 0;
        ::setrlimit(RLIMIT_AS, &limit); // beyond it the process ends
        EXPECT_EQ(run(command,
                      [&](auto, std::string_view piece) {
                          size += piece.size();
                          return piece.size();
                      }),
                  "0 (null)");
        ::setrlimit(RLIMIT_AS, &before);
        EXPECT_EQ(size, 100'000'000U);
    }
    ::close(zeros);
}
