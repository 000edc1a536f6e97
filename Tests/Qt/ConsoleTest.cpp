// The example host's window, used as a person would, on a real server.
#include "Examples/Console/CommandForm.h"
#include "Examples/Console/ConnectionForm.h"
#include "Examples/Console/ConsoleWindow.h"
#include "Tests/Qt/QtTest.h"
#include "Tests/Support/Sshd.h"

#include <QApplication>
#include <QTest>

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
            std::cerr << "--- sshd's log:\n" << server.log() << textOf(window);
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

    void start(const std::string &command) {
        window.commandForm().setCommand(QString::fromStdString(command));
        click(window, "&Run");
    }

    bool shows(const std::string &text) const {
        return textOf(window).find(text) != std::string::npos;
    }

    TemporaryHome home;
    const std::string key = home.directory.path("client");
    Sshd server;
    ConsoleWindow window;
};

TEST_F(ConsoleTest, RefusesFailsConnectsRunsLetsGoAndCloses) {
    connectAnswering("Click:Cancel");
    EXPECT_TRUE(shows("Not connected"));
    EXPECT_TRUE(
        shows("The server's host key was not accepted.\nAsk whoever runs the server for its "
              "key, and compare the two before you connect again."));
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
    EXPECT_EQ(contentOf(home.knownHosts()), "127.0.0.1 " + server.hostKey() + "\n");

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
    click(window, "&Disconnect");
    click(window, "&Disconnect"); // as a double click does
    EXPECT_FALSE(shows("Not connected"));
    click(window, "&Let go");
    EXPECT_TRUE(shows("Not connected"));
    EXPECT_EXIT(window.close(), testing::ExitedWithCode(EXIT_FAILURE), "");

    click(window, "&Connect");
    serveUntil([&] { return shows("Connected to "); });
    const std::string running = home.directory.path("running");
    start("touch " + running + "; kill $(cat " + stuck + "); while [ -e " + stuck +
          " ]; do sleep 0.1; done; rm " + running);
    serveUntil([&] { return window.findChildren<Connection *>().size() == 1; });
    EXPECT_TRUE(shows("Running on "));
    EXPECT_FALSE(shows("Ended by signal")) << "what was let go has reported";
    window.close();
    EXPECT_TRUE(shows("Disconnecting as soon as the server has answered"));
    std::filesystem::remove(stuck);
    EXPECT_EQ(QApplication::exec(), 0);
    EXPECT_TRUE(shows("Not connected"));
    EXPECT_FALSE(std::filesystem::exists(running)) << "the command has not been waited for";
}

TEST_F(ConsoleTest, QuittingAtThePromptEndsTheApplication) {
    withNextAlert([](QDialog & /*dialog*/) { QApplication::quit(); });
    click(window, "&Connect");
    EXPECT_EQ(QApplication::exec(), 0);
    EXPECT_TRUE(shows("Not connected"));
    EXPECT_EQ(contentOf(home.knownHosts()), "");
}
