// Work and timers that other threads hand to the application's event loop.
#include "Tests/Qt/QtTest.h"
#include "Tests/Support/Process.h"

#include <QApplication>
#include <QTest>
#include <QTimer>

#include <unistd.h>

#include <array>
#include <future>
#include <thread>

using SSHPlatform::AlertAnswer;
using Answer = std::future<std::optional<AlertAnswer>>;

namespace {

AlertAnswer show(const std::string &message, int withdrawal = -1) {
    return SSHPlatform::alertPresenter()->runModal({{}, message, {}, {}, {}, {}, withdrawal});
}

// Asks from a thread of its own. No answer means that the question has never been shown.
Answer ask(const std::string &message) {
    return std::async(std::launch::async, [message, main = std::this_thread::get_id()] {
        std::optional<AlertAnswer> answer;
        SSHPlatform::askOnMainThread([&] {
            EXPECT_EQ(std::this_thread::get_id(), main);
            answer = show(message);
        });
        return answer;
    });
}

bool isReady(const Answer &answer) {
    return answer.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

// Lets whoever else wants to ask try in vain.
void expectAlone(const QDialog &dialog, const QString &message) {
    QTest::qWait(50);
    EXPECT_EQ(QApplication::activeModalWidget(), &dialog);
    EXPECT_EQ(dialog.accessibleName(), message);
}

} // namespace

class MainLoopTest : public QtTest {};

TEST_F(MainLoopTest, QuestionsTakeTurnsUntilQuittingRefusesThem) {
    Answer beside;
    Answer waiting;
    AlertAnswer later = AlertAnswer::Refused;
    withNextAlert([&](QDialog &dialog) {
        beside = ask("beside");
        expectAlone(dialog, "here");
        act(dialog, "Return");
    });
    SSHPlatform::askOnMainThread([] { EXPECT_EQ(show("here"), AlertAnswer::FirstButton); });
    EXPECT_FALSE(isReady(beside));

    withNextAlert([&](QDialog &dialog) {
        QTimer::singleShot(0, [&] { later = show("from a timer"); });
        QTimer::singleShot(1, [&] {
            expectAlone(dialog, "beside");
            withNextAlert([](QDialog &next) {
                expectAlone(next, "from a timer");
                act(next, "Return");
            });
            act(dialog, "Return");
        });
    });
    serveUntil([&] { return isReady(beside); });
    EXPECT_EQ(beside.get(), AlertAnswer::FirstButton);
    EXPECT_EQ(later, AlertAnswer::FirstButton);

    withNextAlert([&](QDialog &dialog) {
        waiting = ask("waiting");
        QTimer::singleShot(0, [&] { later = show("while quitting"); });
        QTimer::singleShot(1, [&] {
            expectAlone(dialog, "open");
            QApplication::quit();
        });
    });
    Answer open = ask("open");
    QApplication::exec();
    Answer late = ask("late");
    serveUntil([&] { return isReady(open) && isReady(waiting) && isReady(late); });
    EXPECT_EQ(open.get(), AlertAnswer::Refused);
    EXPECT_EQ(waiting.get().value_or(AlertAnswer::Refused), AlertAnswer::Refused); // shown or not
    EXPECT_EQ(late.get(), std::nullopt);
    std::string log;
    SSHPlatform::setLogSink([&](const std::string &line) { log += line; });
    EXPECT_EQ(show("here"), AlertAnswer::Refused);
    SSHPlatform::setLogSink(nullptr);
    EXPECT_EQ(log, "Refused before it could be shown: here");
    EXPECT_EQ(later, AlertAnswer::Refused);
}

TEST_F(MainLoopTest, WithdrawnQuestionsGoAway) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    AlertAnswer covered = AlertAnswer::FirstButton;
    withNextAlert([&](QDialog & /*first*/) {
        QTimer::singleShot(0, [&] { covered = show("second", ends[0]); }); // waits for its turn
        QTimer::singleShot(1, [&] { ::close(ends[1]); });
    });
    EXPECT_EQ(show("first", ends[0]), AlertAnswer::Refused);
    EXPECT_EQ(covered, AlertAnswer::Refused);
    ::close(ends[0]);
}

TEST_F(MainLoopTest, ATimerOfAnyThreadIsCancelledFromAnyThread) {
    const auto ticks = std::make_shared<int>(0);
    std::shared_ptr<SSHPlatform::RepeatingTimer> timer;
    std::thread([&, main = std::this_thread::get_id()] {
        timer =
            SSHPlatform::mainLoop()->scheduleRepeating(std::chrono::milliseconds(5), [ticks, main] {
                EXPECT_EQ(std::this_thread::get_id(), main);
                ++*ticks;
            });
    }).join();
    serveUntil([&] { return *ticks >= 3; });
    std::thread([&] { timer->invalidate(); }).join();
    EXPECT_EQ(ticks.use_count(), 1) << "the action is released before the loop runs again";
}

TEST_F(MainLoopTest, KeepsNothingOfTimersThatWereInvalidatedWhileItDidNotRun) {
    const auto startAndStop = [](int times) {
        for (int i = 0; i < times; ++i)
            SSHPlatform::mainLoop()
                ->scheduleRepeating(std::chrono::milliseconds(5), [] { FAIL(); })
                ->invalidate();
    };
    std::thread(startAndStop, 1).join();
    const std::size_t before = heapSize();
    std::thread(startAndStop, 1000).join();
    startAndStop(1000);
    EXPECT_LT(heapSize(), before + 10'000);
    QTest::qWait(10);
}
