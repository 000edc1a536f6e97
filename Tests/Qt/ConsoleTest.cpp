// The example host's window, used as a person would, on a real server.
#include "Examples/Console/CommandForm.h"
#include "Examples/Console/ConnectionForm.h"
#include "Examples/Console/ConsoleWindow.h"
#include "Tests/Qt/QtTest.h"
#include "Tests/Support/Sshd.h"

#include <QApplication>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QTest>

#include <algorithm>
#include <iostream>

class ConsoleTest : public QtTest {
  protected:
    ConsoleTest() {
        makeKey(key, "ed25519");
        server.authorize(key);
        fill(currentUser(), key);
        window.show();
    }

    void TearDown() override {
        if (HasFailure())
            std::cerr << "--- sshd's log:\n" << server.log() << textOf(window).substr(0, 4096);
    }

    void fill(const std::string &user, const std::string &keyFile) {
        window.connectionForm().fill("127.0.0.1", server.port(), QString::fromStdString(user),
                                     QString::fromStdString(keyFile));
    }

    // Until it says that it is connected, or not connected.
    void connectAnswering(const QString &action) {
        withNextAlert([action](QDialog &dialog) { act(dialog, action); });
        click(window, "&Connect");
        serveUntil([this] { return shows("Not connected") || shows("Connected to "); });
    }

    void connectAgain() {
        serveUntil([this] { // not enabled as long as the other half of a double click may come
            click(window, "&Connect");
            return shows("Connecting to ");
        });
        serveUntil([this] { return shows("Connected to "); });
    }

    void start(const std::string &command) {
        window.commandForm().setCommand(QString::fromStdString(command));
        click(window, "&Run");
    }

    bool shows(const std::string &text) const {
        return textOf(window).find(text) != std::string::npos;
    }

    QPlainTextEdit &output() const {
        const auto texts = window.findChildren<QPlainTextEdit *>();
        return **std::ranges::find(texts, "Output", &QWidget::accessibleName);
    }

    std::string shownOutput() const { return output().toPlainText().toStdString(); }

    TemporaryHome home;
    const std::string key = home.directory.path("client");
    Sshd server;
    ConsoleWindow window;
};

TEST_F(ConsoleTest, RefusesFailsConnectsRunsCancelsAndCloses) {
    connectAnswering("Click:Cancel");
    EXPECT_TRUE(shows("Not connected"));
    EXPECT_TRUE(shows("The server's host key was not accepted.\nNo key of 127.0.0.1, port "));
    EXPECT_TRUE(shows("connect again and accept the key."));
    expectNames(window);
    window.activateWindow(); // as a window manager does
    serveUntil([&] { return window.isActiveWindow(); });
    QTest::keyClick(window.windowHandle(), Qt::Key_K, Qt::AltModifier);
    EXPECT_EQ(QApplication::focusWidget()->accessibleName(), "Key file");
    QTest::keyClick(window.windowHandle(), Qt::Key_I, Qt::AltModifier);
    EXPECT_EQ(QApplication::focusWidget()->accessibleName(), "Standard input");
    EXPECT_EQ(contentOf(home.knownHosts()), "");

    fill("root", "/missing <b>key</b>");
    connectAnswering("Return");
    EXPECT_TRUE(shows("Dravella could not make an SSH connection to root@127.0.0.1."));
    EXPECT_TRUE(shows("The user-specified key file [[/missing <b>key</b>]] does not exist.\n"
                      "The standard key file [["));
    EXPECT_LE(window.height(), 768 - 40) << "on a low screen, with a frame";
    EXPECT_EQ(contentOf(home.knownHosts()),
              "[127.0.0.1]:" + std::to_string(server.port()) + ' ' + server.hostKey() + "\n");

    fill(currentUser(), key);
    click(window, "&Connect"); // to a server that is known now
    serveUntil([&] { return shows("Connected to " + currentUser() + "@127.0.0.1:"); });
    start("printf '<b>o\\033\\n'; printf 'e\\r' >&2; exit 3");
    serveUntil([&] { return shows("Exit status 3 after"); });
    EXPECT_TRUE(shows("<b>o<U+001B>"));
    EXPECT_TRUE(shows("e<U+000D>"));

    const std::string stuck = home.directory.path("stuck");
    start("echo $$ >" + stuck + "; exec sleep 60");
    serveUntil([&] { return contentOf(stuck).ends_with('\n'); });
    click(window, "&Cancel");
    click(window, "&Cancel"); // as a double click does
    serveUntil([&] { return shows("Not connected"); });
    EXPECT_FALSE(shows("Exit status")) << "a command that was cancelled has reported";
    require({"sh", "-c", "kill $(cat " + stuck + ")"}); // it went on at the server

    connectAgain();
    start("exec yes");
    serveUntil([&] { return shows(" MB; the end is shown"); });
    window.close();
    EXPECT_EQ(QApplication::exec(), 0);
    EXPECT_TRUE(shows("Not connected"));
}

TEST_F(ConsoleTest, ShowsWhatACommandWritesAtOnceAndKeepsItWhenTheConnectionIsLost) {
    connectAnswering("Return");
    const auto afterFile = [&](const char *name) {
        return "; until [ -e " + home.directory.path(name) + " ]; do sleep 0.01; done; ";
    };
    const QScrollBar &bar = *output().verticalScrollBar();
    start("seq 999; printf 'ha\\303'; echo aside >&2" + afterFile("rest") +
          "printf '\\244\\n'; seq 999" + afterFile("end") + "printf '\\342\\202'");
    serveUntil([&] { return shows("998\n999\nha") && shows("aside\n"); });
    EXPECT_TRUE(shownOutput().ends_with("\nha"));
    EXPECT_GT(bar.maximum(), 0);
    EXPECT_EQ(bar.value(), bar.maximum());
    QTest::keyClick(&output(), Qt::Key_Home, Qt::ControlModifier);
    home.directory.write("rest", "");
    serveUntil([&] { return shows("999\nhaä\n1\n") && shows("\n998\n999\n"); });
    EXPECT_EQ(bar.value(), 0);
    EXPECT_FALSE(shows("Exit status"));
    home.directory.write("end", "");
    serveUntil([&] { return shows("Exit status 0 after"); });
    EXPECT_TRUE(shows("\n999\n�"));

    start("echo second" + afterFile("lost") + "kill -9 $PPID");
    serveUntil([&] { return shownOutput() == "second\n"; });
    EXPECT_FALSE(shows("aside"));
    home.directory.write("lost", "");
    serveUntil([&] { return shows("Not connected"); });
    EXPECT_EQ(shownOutput(), "second\n");
    EXPECT_TRUE(shows("Failed after"));
    EXPECT_TRUE(shows("The connection to 127.0.0.1 ended without a word"));
}

TEST_F(ConsoleTest, HoldsACommandUpThatWritesFasterThanIsShown) {
    connectAnswering("Return");
    const std::string written = home.directory.path("written");
    start("seq 700000; touch " + written);
    QTest::qSleep(1'000); // the window stands still
    EXPECT_FALSE(std::filesystem::exists(written));
    serveUntil([&] { return std::filesystem::exists(written); });
    serveUntil([&] { return shows("Exit status 0 after"); });
    EXPECT_TRUE(shows("Output (4.8 MB; the end is shown)"));
    EXPECT_EQ(output().blockCount(), 10'000);
    EXPECT_TRUE(shownOutput().ends_with("\n699999\n700000\n"));

    start("exec yes");
    serveUntil([&] { return shows(" MB; the end is shown"); });
    click(window, "&Cancel");
    serveUntil([&] { return shows("Not connected"); });
    EXPECT_TRUE(shows("Cancelled after"));
    EXPECT_TRUE(shownOutput().starts_with("y\ny\n"));
}

TEST_F(ConsoleTest, QuittingAtThePromptEndsTheApplication) {
    withNextAlert([](QDialog & /*dialog*/) { QApplication::quit(); });
    click(window, "&Connect");
    EXPECT_EQ(QApplication::exec(), 0);
    EXPECT_TRUE(shows("Not connected"));
    EXPECT_EQ(contentOf(home.knownHosts()), "");
}
