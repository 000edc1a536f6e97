#include "Platform/Path.h"
#include "Platform/SerialQueue.h"
#include "Platform/Socket.h"
#include "Tests/Support/Sshd.h"

#include <SSHSession/ByteBuffer.h>
#include <SSHSession/Platform.h>
#include <SSHSession/RunLoop.h>
#include <SSHSession/Secret.h>

#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <latch>
#include <random>
#include <thread>

using namespace SSHPlatform;
using std::chrono::milliseconds;

TEST(ByteBuffer, AgreesWithAStringUnderRandomUse) {
    std::mt19937 random(1);
    ByteBuffer buffer;
    std::string model;
    for (int step = 0; step < 20000; ++step) {
        const std::string piece(random() % 5000, static_cast<char>('a' + step % 26));
        const std::size_t removed = step % 4000 == 0 ? model.size() : random() % 5200;
        buffer.append(piece);
        buffer.removeFromFront(removed);
        (model += piece).erase(0, std::min(removed, model.size()));
        ASSERT_EQ(buffer.view(), model) << "in step " << step;
    }
}

TEST(Secret, OfAShortenedTextNothingIsLeft) {
    std::string text(100, 's');
    const char *const bytes = text.data();
    text.resize(3);
    wipe(text);
    EXPECT_EQ(text, "");
    EXPECT_EQ(std::string_view(bytes, 100), std::string(100, '\0'));
}

TEST(SerialQueue, RunsFirstInFirstOutAndReleasesCapturesAfterwards) {
    SerialQueue queue("test");
    std::string order;
    std::latch blocked(1);
    std::latch entered(1);
    std::thread first([&] {
        queue.sync([&] {
            entered.count_down();
            blocked.wait();
            order += '0';
        });
    });
    entered.wait();
    // The last reference to this goes away on the worker, which then waits for the queue itself.
    std::atomic<bool> released = false;
    const auto waitsForQueue = [&](const int *value) {
        queue.sync([] {});
        released = true;
        delete value;
    };
    queue.async([&, last = std::shared_ptr<int>(new int, waitsForQueue)] { order += '1'; });
    for (const char each : {'2', '3'})
        queue.async([&order, each] { order += each; });
    blocked.count_down();
    queue.sync([&] { order += '4'; });
    first.join();
    EXPECT_EQ(order, "01234");
    EXPECT_TRUE(eventually([&] { return released.load(); }));
}

TEST(SerialQueueDeathTest, ReportsAQueueThatWaitsForItself) {
    SerialQueue queue("com.example");
    EXPECT_DEATH(queue.sync([&] { queue.sync([] {}); }),
                 "com.example was asked to wait for itself");
}

#if defined(__GLIBC__)
// No address space holds a stack of that size.
TEST(SerialQueue, DropsWorkThatGetsNoThread) {
    std::string logged;
    setLogSink([&](const std::string &line) { logged = line; });
    const auto captured = std::make_shared<int>();
    bool ran = false;
    SerialQueue queue("com.example");
    const auto addWork = [&] { queue.async([&ran, captured] { ran = true; }); };

    pthread_attr_t usual;
    ASSERT_EQ(::pthread_getattr_default_np(&usual), 0);
    pthread_attr_t impossible = usual;
    ::pthread_attr_setstacksize(&impossible, std::size_t(1) << 60);
    ASSERT_EQ(::pthread_setattr_default_np(&impossible), 0);
    addWork();
    ::pthread_setattr_default_np(&usual);
    setLogSink(nullptr);
    EXPECT_EQ(logged, "Work for the queue com.example is dropped, for lack of a thread: "
                      "Resource temporarily unavailable");
    EXPECT_EQ(captured.use_count(), 1);
    queue.sync([&] { EXPECT_FALSE(ran); });
    addWork();
    queue.sync([&] { EXPECT_TRUE(ran); });
}
#endif

TEST(RunLoop, ServesOtherThreadsAndForgetsACancelledTimerAtOnce) {
    const auto &loop = RunLoop::main();
    int fired = 0;
    const auto captured = std::make_shared<int>();
    const auto timer = loop->scheduleRepeating(milliseconds(5), [&fired, captured] { ++fired; });
    std::shared_ptr<RepeatingTimer> last;
    std::thread worker([&] {
        EXPECT_FALSE(loop->isMainThread());
        EXPECT_TRUE(eventually([&] {
            int seen = 0;
            loop->runAndWait([&] { seen = loop->isMainThread() ? fired : 0; });
            return seen >= 3;
        }));
        timer->invalidate();
        EXPECT_EQ(captured.use_count(), 1);
        std::this_thread::sleep_for(milliseconds(20)); // until the loop waits with no timer at all
        last = loop->scheduleRepeating(milliseconds(1), [&loop] { loop->stop(); });
    });
    loop->run();
    worker.join();
    last->invalidate();
    const int before = fired;
    loop->runFor(milliseconds(20));
    EXPECT_EQ(fired, before);
}

TEST(RunLoop, KeepsNothingOfTimersThatWereInvalidatedWhileItDidNotRun) {
    const auto startAndStop = [] {
        RunLoop::main()->scheduleRepeating(milliseconds(5), [] { FAIL(); })->invalidate();
    };
    startAndStop();
    const std::size_t before = heapSize();
    for (int i = 0; i < 1000; ++i)
        startAndStop();
    EXPECT_LT(heapSize(), before + 10'000);
    RunLoop::main()->runFor(milliseconds(10));
}

TEST(Socket, AnswersAsSelectDoesAndSurvivesSignals) {
    std::array<int, 2> pair{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair.data()), 0);
    EXPECT_GT(waitForSocket(pair[0], WaitFor::Either, milliseconds(0)), 0);
    EXPECT_EQ(waitForSocket(pair[0], WaitFor::Reading, milliseconds(0)), 0);
    EXPECT_EQ(waitForSocket(-1, WaitFor::Nothing, milliseconds(0)), 0);
    for (const int bad : {-1, 100000}) {
        EXPECT_EQ(waitForSocket(bad, WaitFor::Reading, milliseconds(1000)), -1);
        EXPECT_EQ(errno, EBADF);
    }
    std::signal(SIGALRM, [](int) {});
    ::ualarm(20'000, 0);
    EXPECT_EQ(waitForSocket(pair[0], WaitFor::Reading, milliseconds(60)), 0);
    ::close(pair[0]);
    ::close(pair[1]);
}

TEST(Path, Operations) {
    const TemporaryHome home;
    const std::string directory = home.directory.path();
    EXPECT_EQ(expandingTilde("~/key"), directory + "/key");
    EXPECT_EQ(expandingTilde("~"), directory);
    EXPECT_EQ(expandingTilde("/a/~/b"), "/a/~/b");
    EXPECT_EQ(expandingTilde("~root/x"), "/root/x");
    EXPECT_EQ(expandingTilde("~no-such-user-here/x"), "~no-such-user-here/x");
    for (const auto &[path, name] :
         std::vector<std::pair<std::string, std::string>>{{"/a/id_dsa", "id_dsa"},
                                                          {"/a/server.pem", "server"},
                                                          {"a.b.c", "a.b"},
                                                          {"/a.d/key/", "key"},
                                                          {"/a/.hidden", ".hidden"},
                                                          {"", ""}})
        EXPECT_EQ(deletingPathExtension(lastPathComponent(path)), name) << path;
    std::filesystem::create_directories(directory + "/real/deep");
    std::filesystem::create_directory_symlink(directory + "/real/deep", directory + "/link");
    EXPECT_EQ(standardizedPath("~//./link/../key"), directory + "/real/key");
    EXPECT_EQ(standardizedPath("a//b/../c"), "a/b/../c");
    EXPECT_EQ(standardizedPath("/no-such-directory/../key"), "/key");
}
