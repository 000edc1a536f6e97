// Work and timers that other threads hand to the application's event loop.
#include "Tests/Qt/QtTest.h"

#include <QApplication>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <array>
#include <atomic>
#include <future>
#include <thread>

using SSHPlatform::AlertAnswer;

namespace {

struct Asked {
    bool wasRun = false;
    AlertAnswer answer = AlertAnswer::Refused;
};

// Asks from a thread of its own.
std::future<Asked> ask(const std::string &message) {
    return std::async(std::launch::async, [message] {
        Asked asked;
        asked.wasRun = SSHPlatform::askOnMainThread([&] {
            SSHPlatform::Alert alert;
            alert.messageText = message;
            asked.answer = SSHPlatform::alertPresenter()->runModal(alert);
        });
        return asked;
    });
}

bool isReady(const std::future<Asked> &asked) {
    return asked.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

} // namespace

class MainLoopTest : public QtTest {};

TEST_F(MainLoopTest, QuestionsOfSeveralThreadsComeOneAfterAnother) {
    std::atomic<int> open = 0;
    int most = 0;
    std::vector<std::thread::id> threads;
    const auto question = [&] {
        most = std::max(most, ++open);
        threads.push_back(std::this_thread::get_id());
        QTest::qWait(20); // as a dialog does, it serves the loop
        --open;
    };
    std::array<std::thread, 3> askers;
    for (std::thread &asker : askers)
        asker = std::thread([&] { SSHPlatform::askOnMainThread(question); });
    serveUntil([&] { return threads.size() == 3 && open == 0; });
    for (std::thread &asker : askers)
        asker.join();
    EXPECT_EQ(most, 1);
    EXPECT_EQ(threads, std::vector(3, std::this_thread::get_id()));
}

TEST_F(MainLoopTest, QuittingRefusesEveryQuestion) {
    auto shown = ask("shown");
    std::future<Asked> waiting;
    withNextAlert([&](QDialog &dialog) {
        waiting = ask("waiting");
        QTest::qWait(50);
        EXPECT_EQ(textOf(dialog), "\nshown");
        EXPECT_FALSE(isReady(waiting));
        QApplication::quit();
    });
    QApplication::exec();
    auto late = ask("late");
    serveUntil([&] { return isReady(shown) && isReady(waiting) && isReady(late); });
    EXPECT_EQ(shown.get().answer, AlertAnswer::Refused);
    EXPECT_EQ(waiting.get().answer, AlertAnswer::Refused);
    EXPECT_FALSE(late.get().wasRun);
    SSHPlatform::Alert alert;
    alert.messageText = "here";
    EXPECT_EQ(SSHPlatform::alertPresenter()->runModal(alert), AlertAnswer::Refused);
    EXPECT_EQ(log, std::vector<std::string>{"The application is quitting; refused: here"});
}

TEST_F(MainLoopTest, ATimerOfAnyThreadIsCancelledFromAnyThread) {
    const auto captured = std::make_shared<int>(0);
    std::shared_ptr<SSHPlatform::RepeatingTimer> timer;
    const auto onAThread = [](const std::function<void()> &work) { std::thread(work).join(); };
    onAThread([&] {
        timer = SSHPlatform::mainLoop()->scheduleRepeating(
            std::chrono::milliseconds(5), [captured, main = std::this_thread::get_id()] {
                EXPECT_NE(std::this_thread::get_id(), main);
                ++*captured;
            });
    });
    EXPECT_EQ(captured.use_count(), 2);
    serveUntil([&] { return *captured >= 3; });
    onAThread([&] { timer->invalidate(); });
    EXPECT_EQ(captured.use_count(), 1) << "the action is released before the loop runs again";
    const int ticks = *captured;
    QTest::qWait(50);
    EXPECT_EQ(*captured, ticks);
}
