// Work and timers that other threads hand to the application's event loop.
#include "Tests/Qt/QtTest.h"
#include "Tests/Support/Process.h"

#include <QApplication>
#include <QTest>
#include <QTimer>

#include <future>
#include <thread>

using SSHPlatform::AlertAnswer;
using Answer = std::future<std::optional<AlertAnswer>>;

namespace {

AlertAnswer show(const std::string &message) {
    SSHPlatform::Alert alert;
    alert.messageText = message;
    return SSHPlatform::alertPresenter()->runModal(alert);
}

// Asks from a thread of its own. No answer means that the question has never been shown.
Answer ask(const std::string &message) {
    return std::async(std::launch::async, [message, main = std::this_thread::get_id()] {
        std::optional<AlertAnswer> answer;
        const bool wasRun = SSHPlatform::askOnMainThread([&] {
            EXPECT_EQ(std::this_thread::get_id(), main);
            answer = show(message);
        });
        EXPECT_EQ(wasRun, answer.has_value());
        return answer;
    });
}

bool isReady(const Answer &answer) {
    return answer.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

} // namespace

class MainLoopTest : public QtTest {};

TEST_F(MainLoopTest, QuestionsComeOneAfterAnotherUntilQuittingRefusesThem) {
    Answer first = ask("first");
    Answer second;
    Answer third;
    withNextAlert([&](QDialog &dialog) {
        second = ask("second");
        QTest::qWait(50);
        EXPECT_EQ(QApplication::activeModalWidget(), &dialog);
        EXPECT_EQ(textOf(dialog), "\nfirst");
        withNextAlert([&](QDialog &next) {
            EXPECT_EQ(textOf(next), "\nsecond");
            third = ask("third");
            QTest::qWait(50);
            EXPECT_FALSE(isReady(third));
            QApplication::quit();
        });
        act(dialog, "Return");
    });
    QApplication::exec();
    Answer late = ask("late");
    serveUntil([&] { return isReady(third) && isReady(late); });
    EXPECT_EQ(first.get(), AlertAnswer::FirstButton);
    EXPECT_EQ(second.get(), AlertAnswer::Refused);
    EXPECT_EQ(third.get().value_or(AlertAnswer::Refused), AlertAnswer::Refused); // shown or not
    EXPECT_EQ(late.get(), std::nullopt);

    std::string log;
    SSHPlatform::setLogSink([&](const std::string &line) { log += line; });
    EXPECT_EQ(show("here"), AlertAnswer::Refused);
    SSHPlatform::setLogSink(nullptr);
    EXPECT_EQ(log, "The application is quitting; refused: here");
}

TEST_F(MainLoopTest, QuestionsOfTheMainThreadTakeTurnsAsWell) {
    Answer beside;
    withNextAlert([&](QDialog &dialog) {
        beside = ask("beside");
        QTest::qWait(50);
        EXPECT_EQ(QApplication::activeModalWidget(), &dialog);
        EXPECT_EQ(textOf(dialog), "\nhere");
        act(dialog, "Return");
    });
    SSHPlatform::askOnMainThread([] { EXPECT_EQ(show("here"), AlertAnswer::FirstButton); });
    EXPECT_FALSE(isReady(beside));

    AlertAnswer later = AlertAnswer::Refused;
    withNextAlert([&](QDialog &dialog) {
        QTimer::singleShot(0, [&] { later = show("from a timer"); });
        QTimer::singleShot(50, [&] {
            EXPECT_EQ(QApplication::activeModalWidget(), &dialog);
            EXPECT_EQ(textOf(dialog), "\nbeside");
            withNextAlert([](QDialog &next) {
                EXPECT_EQ(textOf(next), "\nfrom a timer");
                act(next, "Return");
            });
            act(dialog, "Return");
        });
    });
    serveUntil([&] { return isReady(beside); });
    EXPECT_EQ(beside.get(), AlertAnswer::FirstButton);
    EXPECT_EQ(later, AlertAnswer::FirstButton);

    withNextAlert([&](QDialog & /*dialog*/) {
        QTimer::singleShot(0, [&] { later = show("while quitting"); });
        QTimer::singleShot(50, [] { QApplication::quit(); });
    });
    QTimer::singleShot(0, [] { EXPECT_EQ(show("open"), AlertAnswer::Refused); });
    QApplication::exec();
    EXPECT_EQ(later, AlertAnswer::Refused);
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
    EXPECT_EQ(ticks.use_count(), 2);
    serveUntil([&] { return *ticks >= 3; });
    std::thread([&] { timer->invalidate(); }).join();
    EXPECT_EQ(ticks.use_count(), 1) << "the action is released before the loop runs again";
    const int before = *ticks;
    QTest::qWait(50);
    EXPECT_EQ(*ticks, before);
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
