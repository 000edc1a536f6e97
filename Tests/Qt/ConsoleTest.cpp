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

    serveUntil([&] { // it is not enabled as long as the other half of a double click may come
        click(window, "&Connect");
        return shows("Connecting to ");
    });
    serveUntil([&] { return shows("Connected to "); });
    std::filesystem::remove(stuck);
    start("echo $$ >" + stuck + "; exec sleep 60");
    serveUntil([&] { return contentOf(stuck).ends_with('\n'); });
    window.close();
    EXPECT_EQ(QApplication::exec(), 0);
    EXPECT_TRUE(shows("Not connected"));
    require({"sh", "-c", "kill $(cat " + stuck + ")"});
}

TEST_F(ConsoleTest, QuittingAtThePromptEndsTheApplication) {
    withNextAlert([](QDialog & /*dialog*/) { QApplication::quit(); });
    click(window, "&Connect");
    EXPECT_EQ(QApplication::exec(), 0);
    EXPECT_TRUE(shows("Not connected"));
    EXPECT_EQ(contentOf(home.knownHosts()), "");
}
