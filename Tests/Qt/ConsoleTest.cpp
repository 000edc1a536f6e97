// The example host's window, used as a person would, on a real server.
#include "Examples/Console/CommandForm.h"
#include "Examples/Console/ConnectionForm.h"
#include "Examples/Console/ConsoleWindow.h"
#include "Examples/Console/VisibleText.h"
#include "Tests/Qt/QtTest.h"
#include "Tests/Support/Sshd.h"

#include <QApplication>
#include <QTest>

#include <iostream>

namespace {

bool shows(const QWidget &window, const std::string &text) {
    return textOf(window).find(text) != std::string::npos;
}

void press(QWidget &window, const QString &button) {
    QTest::mouseClick(buttonOf(window, button), Qt::LeftButton);
}

} // namespace

class ConsoleTest : public QtTest {
  protected:
    ConsoleTest() {
        makeKey(key, "ed25519");
        server.authorize(key);
        window.connectionForm().fill(QStringLiteral("127.0.0.1"), server.port(),
                                     QString::fromStdString(currentUser()),
                                     QString::fromStdString(key));
        window.show();
    }

    void TearDown() override {
        if (HasFailure())
            std::cerr << "--- sshd's log:\n" << server.log() << textOf(window);
    }

    void connectAnswering(const std::string &action) {
        withNextAlert([action](QDialog &dialog) { act(dialog, {action}); });
        press(window, QStringLiteral("&Connect"));
        serveUntil([this] {
            return buttonOf(window, QStringLiteral("&Connect")) || shows(window, "Connected to ");
        });
    }

    void start(const std::string &command) {
        window.commandForm().setCommand(QString::fromStdString(command));
        press(window, QStringLiteral("&Run"));
    }

    TemporaryHome home;
    const std::string key = home.directory.path("client");
    Sshd server;
    ConsoleWindow window;
};

TEST_F(ConsoleTest, RefusesThenConnectsRunsAndDisconnects) {
    connectAnswering("Click:Cancel");
    EXPECT_TRUE(shows(window, "Not connected")) << textOf(window);
    EXPECT_TRUE(shows(window, "The server's host key was not accepted."));

    connectAnswering("Return");
    ASSERT_TRUE(shows(window, "Connected to " + currentUser() + "@127.0.0.1:"));
    EXPECT_EQ(contentOf(home.knownHosts()), "127.0.0.1 " + server.hostKey() + "\n");

    start("printf '<b>o\\033\\n'; printf 'e\\r' >&2; exit 3");
    serveUntil([this] { return shows(window, "Exit status 3 after"); });
    EXPECT_TRUE(shows(window, "<b>o<U+001B>")) << textOf(window);
    EXPECT_TRUE(shows(window, "e<U+000D>"));

    press(window, QStringLiteral("&Disconnect"));
    serveUntil([this] { return shows(window, "Not connected"); });
}

TEST_F(ConsoleTest, ClosingWhileACommandRunsEndsTheApplication) {
    connectAnswering("Return");
    const std::string running = home.directory.path("running");
    start("touch " + running + "; sleep 0.5; rm " + running);
    serveUntil([&] { return std::filesystem::exists(running); });
    EXPECT_TRUE(shows(window, "Running on "));
    window.close();
    EXPECT_TRUE(shows(window, "Disconnecting as soon as the server has answered"));
    EXPECT_EQ(QApplication::exec(), 0);
    EXPECT_TRUE(shows(window, "Not connected"));
    EXPECT_FALSE(std::filesystem::exists(running)) << "the command has not been waited for";
}

TEST_F(ConsoleTest, QuittingAtThePromptEndsTheApplication) {
    withNextAlert([](QDialog & /*dialog*/) { QApplication::quit(); });
    press(window, QStringLiteral("&Connect"));
    EXPECT_EQ(QApplication::exec(), 0);
    EXPECT_TRUE(shows(window, "Not connected"));
    EXPECT_EQ(contentOf(home.knownHosts()), "");
}

TEST_F(ConsoleTest, AFailedAuthenticationShowsItsTranscript) {
    window.connectionForm().fill(QStringLiteral("127.0.0.1"), server.port(), QStringLiteral("root"),
                                 QStringLiteral("/missing <b>key</b>"));
    connectAnswering("Return");
    EXPECT_TRUE(shows(window, "Dravella could not make an SSH connection to root@127.0.0.1."));
    EXPECT_TRUE(shows(window,
                      "The user-specified key file [[/missing <b>key</b>]] does not exist.\n"
                      "The standard key file [["))
        << textOf(window);
}
