// What the user sees and which keys do what, with real events sent to the real dialogs.
#include "Tests/Qt/QtTest.h"

#include <SSHSession/SSHSessionPasswordPanel.h>

#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QTest>
#include <QTimer>
#include <QTranslator>

#include <tuple>
#include <utility>

namespace {

constexpr int refused = 0;
constexpr int stays = -1; // on the screen

int answerTo(std::vector<SSHPlatform::AlertButton> buttons, const QString &actions) {
    bool isOpen = false;
    withNextAlert([&](QDialog &dialog) {
        act(dialog, actions);
        isOpen = dialog.isVisible();
        dialog.close();
    });
    const auto answer = SSHPlatform::alertPresenter()->runModal(
        {SSHPlatform::AlertStyle::Critical, "message", "details", std::move(buttons), {}, {}});
    return isOpen ? stays : static_cast<int>(answer);
}

} // namespace

class AlertTest : public QtTest {};

TEST_F(AlertTest, OnlyTheKeyEquivalentAndTheMousePressAButton) {
    for (const auto &[actions, ifUnknown, ifChanged] : std::vector<std::tuple<QString, int, int>>{
             {"Return", 1000, 1001},
             {"Enter", 1000, 1001},
             {"Tab, Return", 1000, 1001}, // the focus is in a text now
             {"Tab, Tab, Enter", 1000, 1001},
             {"Held Return", stays, stays},
             {"Repeated Return", stays, stays}, // as X11 has it
             {"Early Return, Early Enter", stays, stays},
             {"Early Click:Cancel", 1001, 1001},
             {"Shift+Return", stays, stays},
             {"Escape", stays, stays},
             {"Space, Tab, Space, Tab, Space, Tab, Space", stays, stays},
             {"Alt+A, Alt+C, A, C", stays, stays},
             {"Click:Add and Connect", 1000, 1000},
             {"Click:Cancel", 1001, 1001},
             {"Close", refused, refused}}) {
        SCOPED_TRACE(actions.toStdString());
        EXPECT_EQ(answerTo({{"Add and Connect", "\r"}, {"Cancel", ""}}, actions), ifUnknown);
        EXPECT_EQ(answerTo({{"Add and Connect", ""}, {"Cancel", "\r"}}, actions), ifChanged);
    }
    EXPECT_EQ(answerTo({{"&Add", ""}, {"&Cancel", ""}}, "Alt+A, Return, Click:&&Cancel"), 1001);
    EXPECT_EQ(answerTo({}, "Click:OK"), 1000);
}

TEST_F(AlertTest, AnswersOfThePasswordPanel) {
    struct German final : QTranslator {
        QString translate(const char *context, const char *text, const char * /*comment*/,
                          int /*number*/) const override {
            return context == std::string("SSHSession") && text == std::string("OK") ? "Gut" : "";
        }
    } german;
    QCoreApplication::installTranslator(&german);
    EXPECT_TRUE(SSHPlatform::alertPresenter()->loadImage("SSHLockAndKeys", "icns"));
    SSHSessionPasswordPanel panel;
    for (const auto &[actions, answer] :
         std::vector<std::pair<QString, std::string>>{{"P, W, Return", "pw"},
                                                      {"P, W, Click:Gut", "pw"},
                                                      {"P, Early Return", "p"},
                                                      {"P, Tab, Enter", "p"}, // from the check box
                                                      {"P, Tab, Early Return", "none"},
                                                      {"P, Tab, Tab, Early Space", "none"},
                                                      {"P, Tab, Tab, Early Return, Space", "p"},
                                                      {"P, Tab, Tab, Return", "p"},
                                                      {"P, Tab, Tab, Tab, Return", "none"},
                                                      {"P, W, Click:Cancel", "none"},
                                                      {"P, W, Escape", "none"},
                                                      {"P, W, Close", "none"},
                                                      {"Early Return, P, Return", "p"},
                                                      {"Return", "none"},
                                                      {"Click:Gut", "none"}}) {
        SCOPED_TRACE(actions.toStdString());
        QPointer<QLineEdit> field;
        withNextAlert([&, actions = actions](QDialog &dialog) {
            field = dialog.findChild<QLineEdit *>("alertPasswordField");
            auto *const box = dialog.findChild<QCheckBox *>();
            ASSERT_TRUE(field && box);
            EXPECT_EQ(dialog.focusWidget(), field);
            EXPECT_EQ(field->echoMode(), QLineEdit::Password);
            EXPECT_EQ(field->text(), "");
            EXPECT_FALSE(box->isChecked());
            box->click();
            EXPECT_NE(textOf(dialog).find("SSH key \"a\"b%n<i>\"."), std::string::npos);
            act(dialog, actions);
            dialog.close();
        });
        EXPECT_EQ(panel.passwordForSSHKey("a\"b%n<i>").value_or("none"), answer);
        ASSERT_TRUE(field) << "the nib still owns its views";
        EXPECT_EQ(field->text(), "");
    }
}

TEST_F(AlertTest, KeysCountHalfASecondAfterTheQuestionIsUp) {
    withNextAlert([](QDialog &dialog) {
        auto *const settling = dialog.findChild<QTimer *>("settling");
        EXPECT_EQ(settling->intervalAsDuration(), std::chrono::milliseconds(500));
        for (const auto type : {QEvent::Show, QEvent::WindowActivate}) {
            settling->stop();
            QShowEvent up;
            QEvent active(type);
            QApplication::sendEvent(&dialog, type == QEvent::Show ? &up : &active);
            EXPECT_TRUE(settling->isActive());
        }
        serveUntil([&] { return !settling->isActive(); });
        EXPECT_TRUE(dialog.isVisible());
        QTest::keyClick(dialog.windowHandle(), Qt::Key_Return);
    });
    EXPECT_EQ(SSHPlatform::alertPresenter()->runModal({}), SSHPlatform::AlertAnswer::FirstButton);
}

TEST_F(AlertTest, TextsAreLiteralWrappedAndCopiedExactly) {
    const std::string prompt = "<b>%s%n</b>\n&amp; &x\nCode: " + std::string(700, 'A') + "/+==";
    withNextAlert([&](QDialog &dialog) {
        EXPECT_EQ(textOf(dialog), "\nAuthenticate SSH using keybpard-interactive.\n" + prompt);
        const auto *const reader = QAccessible::queryAccessibleInterface(&dialog);
        EXPECT_EQ(reader->text(QAccessible::Name), "Authenticate SSH using keybpard-interactive.");
        EXPECT_EQ(reader->text(QAccessible::Description).toStdString(), prompt);
        EXPECT_EQ(namelessIn(dialog), "");
        for (const auto *const each : dialog.findChildren<QPlainTextEdit *>())
            EXPECT_EQ(each->verticalScrollBar()->maximum(), 0) << "the first line can go away";
        auto *const text = dialog.findChildren<QPlainTextEdit *>().last();
        text->selectAll();
        text->copy();
        EXPECT_EQ(QApplication::clipboard()->text().toStdString(), prompt);
        EXPECT_GT(text->document()->lineCount(), 8);
        EXPECT_LE(text->document()->idealWidth(), text->width());
        act(dialog, "4, 2, Return");
    });
    EXPECT_EQ(SSHSessionPasswordPanel().responseToKeyboardPrompt(prompt), "42");
}
