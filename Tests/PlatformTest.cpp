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

#include <atomic>
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
    std::atomic<bool> released = false;
    // The last reference to this goes away on the worker, which then waits for the queue itself.
    std::shared_ptr<void> last(nullptr, [&](void *) {
        queue.sync([] {});
        released = true;
    });
    queue.sync([&] { // meanwhile the others wait
        queue.async([&order, last = std::move(last)] { order += '1'; });
        queue.async([&order] { order += '2'; });
        order += '0';
    });
    queue.sync([&] { order += '3'; });
    EXPECT_EQ(order, "0123");
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
    SerialQueue queue("com.example");
    pthread_attr_t usual;
    ASSERT_EQ(::pthread_getattr_default_np(&usual), 0);
    pthread_attr_t impossible = usual;
    ::pthread_attr_setstacksize(&impossible, std::size_t(1) << 60);
    ASSERT_EQ(::pthread_setattr_default_np(&impossible), 0);
    queue.async([] { ADD_FAILURE(); });
    ::pthread_setattr_default_np(&usual);
    setLogSink(nullptr);
    EXPECT_EQ(logged, "Work for the queue com.example is dropped, for lack of a thread: "
                      "Resource temporarily unavailable");
    bool ran = false;
    queue.async([&] { ran = true; });
    queue.sync([&] { EXPECT_TRUE(ran); });
}
#endif

TEST(RunLoop, ServesOtherThreadsAndKeepsNothingOfACancelledTimer) {
    const auto &loop = RunLoop::main();
    const std::size_t before = heapSize();
    for (int i = 0; i < 1000; ++i) // while it does not run
        loop->scheduleRepeating(milliseconds(5), [] {})->invalidate();
    EXPECT_LT(heapSize(), before + 10'000);
    std::atomic<int> fired = 0;
    const auto captured = std::make_shared<int>();
    std::shared_ptr<RepeatingTimer> last;
    std::thread worker([&] {
        EXPECT_FALSE(loop->isMainThread());
        loop->runAndWait([&] { EXPECT_TRUE(loop->isMainThread()); });
        // The loop waits with no timer at all, now and when this one is gone.
        const auto timer =
            loop->scheduleRepeating(milliseconds(5), [&fired, captured] { ++fired; });
        EXPECT_TRUE(eventually([&] { return fired >= 3; }));
        timer->invalidate();
        EXPECT_TRUE(eventually([&] { return captured.use_count() == 1; })); // once it has returned
        loop->runAndWait([] {});
        last = loop->scheduleRepeating(milliseconds(1), [&loop] { loop->stop(); });
    });
    loop->run();
    worker.join();
    last->invalidate();
}

TEST(Socket, RefusesWhatIsNoneAndPausesWithoutOne) {
    EXPECT_EQ(waitForSocket(-1, WaitFor::Nothing, milliseconds(0)), 0);
    for (const int bad : {-1, 100000}) {
        EXPECT_EQ(waitForSocket(bad, WaitFor::Reading, milliseconds(1000)), -1);
        EXPECT_EQ(errno, EBADF);
    }
}

TEST(Path, Operations) {
    const TemporaryHome home;
    const std::string directory = home.directory.path();
    EXPECT_EQ(expandingTilde("~"), directory);
    EXPECT_EQ(expandingTilde("/a/~/b"), "/a/~/b");
    EXPECT_EQ(expandingTilde("~root/x"), "/root/x");
    EXPECT_EQ(expandingTilde("~no-such-user-here/x"), "~no-such-user-here/x");
    for (const auto &[path, name] : std::vector<std::pair<std::string, std::string>>{
             {"/a/server.pem", "server"}, {"/a.d/key/", "key"}, {"", ""}})
        EXPECT_EQ(deletingPathExtension(lastPathComponent(path)), name) << path;
    std::filesystem::create_directories(directory + "/real/deep");
    std::filesystem::create_directory_symlink(directory + "/real/deep", directory + "/link");
    EXPECT_EQ(standardizedPath("~//./link/../key"), directory + "/real/key");
    EXPECT_EQ(standardizedPath("a//b/../c"), "a/b/../c");
    EXPECT_EQ(standardizedPath(".//"), ".");
    EXPECT_EQ(standardizedPath("/no-such-directory/../key"), "/key");
}
