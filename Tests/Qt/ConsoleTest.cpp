// The example host's window, used as a person would, on a real server.
#include "Examples/Console/CommandForm.h"
#include "Examples/Console/ConnectionForm.h"
#include "Examples/Console/ConsoleWindow.h"
#include "Examples/Console/Widgets.h"
#include "Tests/Qt/QtTest.h"
#include "Tests/Support/Sshd.h"

#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollBar>
#include <QSet>
#include <QTest>
#include <QTextBlock>

#include <algorithm>
#include <cmath>
#include <iostream>

namespace {

// Of WCAG 2.1.
double luminance(const QColor &color) {
    const auto linear = [](double part) {
        return part <= 0.03928 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
           0.0722 * linear(color.blueF());
}

double contrast(const QColor &text, const QColor &ground) {
    const double alpha = text.alphaF();
    const auto blend = [&](double over, double under) {
        return over * alpha + under * (1 - alpha);
    };
    const auto [dark, light] = std::minmax(
        {luminance(ground),
         luminance(QColor::fromRgbF(static_cast<float>(blend(text.redF(), ground.redF())),
                                    static_cast<float>(blend(text.greenF(), ground.greenF())),
                                    static_cast<float>(blend(text.blueF(), ground.blueF()))))});
    return (light + 0.05) / (dark + 0.05);
}

} // namespace

class ConsoleTest : public QtTest {
  protected:
    ConsoleTest() {
        makeKey(key, "ed25519");
        server.authorize(key);
        fill(currentUser(), key);
        window.show();
        for (auto *const notice : window.findChildren<Notice *>()) {
            QObject::connect(notice, &Notice::said,
                             [this](const QString &text) { spoken += text; });
            const auto *const reader = QAccessible::queryAccessibleInterface(notice);
            EXPECT_EQ(reader->role(),
                      QAccessible::Notification); // which they speak when it is shown
        }
    }

    void TearDown() override {
        if (HasFailure())
            std::cerr << "--- sshd's log:\n" << server.log() << textOf(window).substr(0, 4096);
    }

    void fill(const std::string &user, const std::string &keyFile) {
        fill(user, keyFile, server.port());
    }

    void fill(const std::string &user, const std::string &keyFile, int port) {
        window.connectionForm().fill({.name = {},
                                      .host = "127.0.0.1",
                                      .port = port,
                                      .user = QString::fromStdString(user),
                                      .keyFile = QString::fromStdString(keyFile)});
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

    // By the name that screen readers give it, or its label.
    template <class Field>
    static Field &field(const QWidget &within, const QString &name) {
        const auto fields = within.findChildren<Field *>();
        const auto found = std::ranges::find_if(fields, [&](Field *one) {
            return QAccessible::queryAccessibleInterface(one)->text(QAccessible::Name) == name;
        });
        if (found == fields.end())
            throw std::runtime_error("there is no " + name.toStdString());
        return **found;
    }

    QString focusName() {
        activate();
        const QWidget *const focus = QApplication::focusWidget();
        const auto *const combo = qobject_cast<const QComboBox *>(focus);
        return combo   ? combo->lineEdit()->accessibleName()
               : focus ? QAccessible::queryAccessibleInterface(const_cast<QWidget *>(focus))
                             ->text(QAccessible::Name)
                       : QString();
    }

    void activate() {
        window.activateWindow(); // as a window manager does
        serveUntil([&] { return window.isActiveWindow(); });
    }

    void press(const char *keys) {
        activate();
        const QKeyCombination pressed = QKeySequence(keys)[0];
        QTest::keyClick(window.windowHandle(), pressed.key(), pressed.keyboardModifiers());
    }

    // What Tab, or the like, leads to until it comes round.
    QSet<QWidget *> walk(const char *keys) {
        QSet<QWidget *> seen;
        for (press(keys); !seen.contains(QApplication::focusWidget()); press(keys))
            seen += QApplication::focusWidget();
        return seen;
    }

    std::string shownOutput() const { return output().toPlainText().toStdString(); }

    TemporaryHome home;
    const std::string key = home.directory.path("client");
    Sshd server;
    const std::string settings = home.directory.path("config/connections.ini");
    ConsoleWindow window{QString::fromStdString(settings)};
    QStringList spoken; // in turn
};

TEST_F(ConsoleTest, RefusesFailsConnectsRunsCancelsAndCloses) {
    connectAnswering("Click:Cancel");
    EXPECT_TRUE(shows("Not connected"));
    EXPECT_TRUE(shows("The server's host key was not accepted.\nNo key of 127.0.0.1, port "));
    EXPECT_TRUE(shows("connect again and accept the key."));
    EXPECT_EQ(focusName(), "What went wrong");
    press("Alt+Y");
    serveUntil(
        [] { return QApplication::clipboard()->text().startsWith("The server's host key"); });
    press("Escape");
    EXPECT_EQ(focusName(), "Host");
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
    spoken.clear();
    click(window, "&Connect"); // to a server that is known now
    serveUntil([&] { return shows("Connected to " + currentUser() + "@127.0.0.1:"); });
    EXPECT_EQ(focusName(), "Command");
    start("printf '<b>o\\033\\n'; printf 'e\\r' >&2; exit 3");
    serveUntil([&] { return shows("Exit status 3 after"); });
    EXPECT_TRUE(shows("<b>o<U+001B>"));
    EXPECT_TRUE(shows("e<U+000D>"));
    const QString name =
        QString::fromStdString(currentUser()) + "@127.0.0.1:" + QString::number(server.port());
    ASSERT_EQ(spoken.size(), 5) << spoken.join("; ").toStdString();
    EXPECT_EQ(spoken.mid(0, 3),
              QStringList({"Connecting to " + name, "Connected to " + name, "Running on " + name}));
    EXPECT_TRUE(spoken[3].startsWith("Exit status 3 after "));
    EXPECT_EQ(spoken[4], "Connected to " + name);

    start("no-such-command");
    serveUntil([&] { return shows("Exit status 127 after"); });
    EXPECT_TRUE(shows("Exit status 127\nThe server's shell found no such command"));
    EXPECT_TRUE(shows("\nWhat to do: "));
    press("Escape");
    EXPECT_EQ(focusName(), "Command");

    const std::string stuck = home.directory.path("stuck");
    start("echo $$ | tee " + stuck + "; exec sleep 60");
    const QRegularExpression status("\nRunning on " + name + ": \\d+ s, \\d+ bytes received\n");
    serveUntil([&] { return QString::fromStdString(textOf(window)).contains(status); });
    click(window, "&Cancel");
    click(window, "&Cancel"); // as a double click does
    serveUntil([&] { return shows("Not connected"); });
    EXPECT_TRUE(shows("Cancelled after ")) << "a command that was cancelled has reported";
    EXPECT_EQ(focusName(), "Host");
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

TEST_F(ConsoleTest, FindsAndCopiesAllThatIsKeptAndBringsCommandsBack) {
    connectAnswering("Return");
    start("seq 99999; printf 'Last'");
    serveUntil([&] { return shows("Exit status 0 after"); });
    press("Ctrl+F");
    QTest::keyClicks(QApplication::focusWidget(), "31415");
    press("Return");
    EXPECT_TRUE(shows("1 of 1, from the top"));
    EXPECT_TRUE(shows("Output (588.9 kB; a part is shown, Escape shows the end)"));
    EXPECT_EQ(output().textCursor().selectedText(), "31415");
    EXPECT_EQ(output().textCursor().block().previous().text(), "31414");
    press("Ctrl+F");
    QTest::keyClicks(QApplication::focusWidget(), "LAST");
    press("F3");
    EXPECT_TRUE(shows("1 of 1"));
    EXPECT_EQ(output().textCursor().block().previous().text(), "99999");
    press("Ctrl+F");
    QTest::keyClicks(QApplication::focusWidget(), "9999");
    for (const auto &[keys, notice] :
         std::vector<std::pair<const char *, std::string>>{{"Shift+F3", "20 of 20"},
                                                           {"Shift+F3", "19 of 20"},
                                                           {"F3", "20 of 20"},
                                                           {"F3", "1 of 20, from the top"},
                                                           {"F3", "2 of 20"},
                                                           {"Shift+F3", "1 of 20"},
                                                           {"Shift+F3", "20 of 20, from the end"},
                                                           {"F3", "1 of 20, from the top"}}) {
        press(keys);
        EXPECT_EQ(spoken.last().toStdString(), notice);
        EXPECT_EQ(output().textCursor().selectedText(), "9999");
    }
    press("Ctrl+F");
    QTest::keyClicks(QApplication::focusWidget(), "no such text");
    press("Return");
    EXPECT_TRUE(shows("Not found"));
    press("Escape");
    EXPECT_EQ(focusName(), "Output");
    EXPECT_TRUE(shows("Output (588.9 kB; the end is shown)"));
    EXPECT_TRUE(shownOutput().ends_with("\n99999\nLast"));
    EXPECT_EQ(output().blockCount(), 10'000);
    press("Ctrl+Shift+C");
    const QString copied = QApplication::clipboard()->text();
    EXPECT_TRUE(copied.startsWith("1\n2\n3\n") && copied.endsWith("\n99999\nLast"));

    start("echo aside >&2");
    serveUntil([&] { return shows("aside\n"); });
    serveUntil([&] { return shows("Exit status 0 after"); });
    press("Alt+E");
    press("Ctrl+Shift+C");
    EXPECT_EQ(QApplication::clipboard()->text(), "aside\n");
    press("Alt+N");
    press("Down");
    press("Return");
    serveUntil([&] { return shownOutput().ends_with("Last"); });
    EXPECT_FALSE(shows("aside\n"));
}

TEST_F(ConsoleTest, SavesConnectionsAndNoPassword) {
    auto &password = field<QLineEdit>(window, "Password");
    const auto names = [](const ConsoleWindow &of) {
        const QComboBox &box = *of.findChildren<QComboBox *>().front();
        QStringList texts;
        for (int i = 0; i < box.count(); ++i)
            texts += box.itemText(i);
        return texts;
    };
    const auto save = [&](const char *name) {
        press("Alt+V");
        QApplication::focusWidget()->findChild<QLineEdit *>()->selectAll();
        QTest::keyClicks(QApplication::focusWidget(), name);
        click(window, "&Save");
    };
    const QString user = QString::fromStdString(currentUser());
    password.setText("pa55word");
    click(window, "&Save");
    save("Shop, \"new\"=[1]");
    fill("somebody", "~/.ssh/other", 2222);
    save("Shop"); // which another name begins with
    EXPECT_EQ(names(window), QStringList({"Shop", "Shop, \"new\"=[1]",
                                          user + "@127.0.0.1:" + QString::number(server.port())}));
    password.setText("pa55word");
    press("Alt+V");
    press("Down");
    EXPECT_EQ(window.connectionForm().parameters().user, currentUser());
    EXPECT_EQ(window.connectionForm().parameters().keyFile, key);
    EXPECT_EQ(password.text(), "") << "one server's password is left for another";
    EXPECT_EQ(names(window).front(), "Shop");
    password.setText("pa55word");
    password.selectAll();
    password.copy();
    EXPECT_EQ(QApplication::clipboard()->text().indexOf("pa55word"), -1);
    connectAnswering("Return");
    start("exit 0");
    serveUntil([&] { return shows("Exit status 0 after"); });
    EXPECT_EQ(names(window).front(), "Shop, \"new\"=[1]");
    EXPECT_EQ(window.windowTitle().indexOf("pa55word"), -1);

    ConsoleWindow later{QString::fromStdString(settings)};
    EXPECT_EQ(names(later), names(window));
    EXPECT_EQ(later.connectionForm().parameters().port, server.port());
    field<QLineEdit>(later, "User").setText("admin");
    click(later, "&Save");
    EXPECT_EQ(names(later), names(window));
    click(later, "Re&move");
    EXPECT_EQ(names(later).size(), 2);
    EXPECT_EQ(later.connectionForm().parameters().user, "admin");
    click(later, "&Save");
    EXPECT_EQ(ConsoleWindow(QString::fromStdString(settings)).connectionForm().parameters().user,
              "admin");
    for (const auto &entry : std::filesystem::recursive_directory_iterator(home.directory.path("")))
        if (entry.is_regular_file()) {
            EXPECT_EQ(contentOf(entry.path()).find("pa55word"), std::string::npos) << entry.path();
        }
    EXPECT_NE(contentOf(settings).find("somebody"), std::string::npos);

    home.directory.write("file", "");
    ConsoleWindow unable{QString::fromStdString(home.directory.path("file/none"))};
    unable.connectionForm().fill({.name = {}, .host = "h", .port = 22, .user = "u", .keyFile = {}});
    click(unable, "&Save");
    EXPECT_NE(textOf(unable).find("The saved connections cannot be written.\nWhat to do: "),
              std::string::npos);
}

TEST_F(ConsoleTest, EverythingIsReachedByKeyAndHasItsNameAndContrast) {
    fill("root", "/missing");
    connectAnswering("Return"); // so that there is a problem to read
    fill(currentUser(), key);
    press("Alt+C");
    serveUntil([&] { return shows("Connected to "); });
    start("echo a; echo b >&2; kill -9 $PPID");
    serveUntil([&] { return shows("Not connected"); });
    serveUntil([&] { return field<QPushButton>(window, "Connect").isEnabled(); });
    window.findChild<QCheckBox *>()->click();
    press("Alt+E");
    press("Ctrl+F");
    press("Alt+O");
    press("Ctrl+F");
    expectNames(window);
    const QSet<QWidget *> reached = walk("Tab");
    EXPECT_EQ(walk("Shift+Tab"), reached);
    QString keys;
    for (auto *const one : window.findChildren<QWidget *>()) {
        if (one->isVisible() && one->isEnabled() && one->focusPolicy() & Qt::TabFocus &&
            !one->focusProxy()) {
            EXPECT_TRUE(reached.contains(one))
                << one->metaObject()->className() << one->property("text").toString().toStdString();
        }
        const QString text =
            one->property(one->inherits("QGroupBox") ? "title" : "text").toString();
        if (const auto mark = text.indexOf('&'); mark >= 0)
            keys += text[mark + 1].toUpper();
    }
    EXPECT_EQ(QSet<QChar>(keys.begin(), keys.end()).size(), keys.size()) << keys.toStdString();
    EXPECT_GE(keys.size(), 18);

    using enum QPalette::ColorRole;
    for (const QPalette &palette : {consolePalette(false), consolePalette(true)})
        for (const auto group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled})
            for (const auto &[text, ground] :
                 std::vector<std::pair<QPalette::ColorRole, QPalette::ColorRole>>{
                     {WindowText, Window},
                     {Text, Base},
                     {ButtonText, Button},
                     {PlaceholderText, Base},
                     {HighlightedText, Highlight}})
                EXPECT_GE(contrast(palette.color(group, text), palette.color(group, ground)), 4.5)
                    << group << text << palette.color(ground).name().toStdString();
}

TEST_F(ConsoleTest, AsksForASecondFactorAndCancelsASilentServer) {
    makeKey(home.directory.path("host"), "ecdsa");
    const std::string log = home.directory.path("log");
    const Process scripted({"/usr/bin/python3", "-W", "ignore",
                            SSHSESSION_TESTS_DIRECTORY "/scripted_server.py",
                            home.directory.path("host")},
                           log);
    int port = 0;
    serveUntil([&] { return std::sscanf(contentOf(log).c_str(), "port %d\n", &port) == 1; });
    home.directory.write(".ssh/known_hosts", "[127.0.0.1]:" + std::to_string(port) + " " +
                                                 publicKey(home.directory.path("host")) + "\n");
    fill("publickey>keyboard-interactive '||-One-time code: '", key, port);
    withNextAlert([](QDialog &dialog) {
        EXPECT_NE(textOf(dialog).find("The server asks: One-time code:"), std::string::npos)
            << textOf(dialog);
        act(dialog, "4, 7, 1, 1, Return");
    });
    click(window, "&Connect");
    serveUntil([&] { return shows("Connected to publickey"); });
    start("out 'let in\\n'; true");
    serveUntil([&] { return shows("let in\n"); });
    EXPECT_NE(contentOf(log).find("answers [b'4711']"), std::string::npos) << contentOf(log);
    EXPECT_EQ(textOf(window).find("4711"), std::string::npos);
    serveUntil([&] { return shows("Exit status 0 after"); });
    click(window, "&Disconnect");
    serveUntil([&] { return shows("Not connected"); });

    const unsigned short silent = freePort();
    const Process listener({"/usr/bin/python3", "-c",
                            "import socket, sys, time\n"
                            "s = socket.create_server(('127.0.0.1', int(sys.argv[1])))\n"
                            "print('up', flush=True)\ntime.sleep(600)",
                            std::to_string(silent)},
                           home.directory.path("silent"));
    serveUntil([&] { return contentOf(home.directory.path("silent")) == "up\n"; });
    fill("ada", key, silent);
    serveUntil([this] { // see connectAgain
        click(window, "&Connect");
        return shows("Connecting to ");
    });
    serveUntil([this] { return shows("agreeing on keys: "); });
    press("Alt+C");
    serveUntil([this] { return shows("Not connected"); });
    EXPECT_EQ(focusName(), "Host");
}
