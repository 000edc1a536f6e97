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

namespace {

// Which button the actions press; 0 means none, and that the question is still there.
int answerTo(const std::vector<SSHPlatform::AlertButton> &buttons, const QString &actions) {
    bool isOpen = false;
    withNextAlert([&](QDialog &dialog) {
        act(dialog, actions);
        isOpen = dialog.isVisible();
        dialog.close();
    });
    const int answer = static_cast<int>(SSHPlatform::alertPresenter()->runModal(
        {SSHPlatform::AlertStyle::Critical, "message", "details", buttons, {}, {}}));
    EXPECT_EQ(isOpen, answer == 0);
    return answer;
}

} // namespace

class AlertTest : public QtTest {};

TEST_F(AlertTest, OnlyTheKeyEquivalentAndTheMousePressAButton) {
    for (const auto &[actions, answer] : std::vector<std::pair<QString, int>>{
             {"Return", 1000},
             {"Tab, Enter", 1000}, // the focus is in a text now
             {"Shift+Return, Held Return, Early Return, Repeated Return, Escape", 0},
             {"Space, Tab, Space, Tab, Space, Tab, Space, Alt+A, Alt+C, A, C", 0},
             {"Early Click:Cancel", 1001}}) {
        SCOPED_TRACE(actions.toStdString());
        EXPECT_EQ(answerTo({{"Add and Connect", "\r"}, {"Cancel", ""}}, actions), answer);
    }
    EXPECT_EQ(answerTo({{"Add", ""}, {"Cancel", "\r"}}, "Return"), 1001);
    EXPECT_EQ(answerTo({{"Add", ""}, {"Cancel", "\r"}}, "Tab, Space, Click:Add"), 1000);
    EXPECT_EQ(answerTo({{"&Add", ""}, {"&Cancel", ""}}, "Alt+A, Return, Click:&&Cancel"), 1001);
    EXPECT_EQ(answerTo({}, "Click:OK"), 1000);
}

TEST_F(AlertTest, AnswersOfThePasswordPanel) {
    struct German final : QTranslator {
        QString translate(const char *context, const char *text, const char * /*comment*/,
                          int /*number*/) const override {
            return QString(context) + text == "SSHSessionOK" ? "Gut" : "";
        }
    } german;
    QCoreApplication::installTranslator(&german);
    EXPECT_TRUE(SSHPlatform::alertPresenter()->loadImage("SSHLockAndKeys", "icns"));
    SSHSessionPasswordPanel panel;
    for (const auto &[actions, answer] : std::vector<std::pair<QString, std::string>>{
             {"P, W, Click:Gut", "pw"},
             {"Early Return, P, Early Return", "p"},
             {"P, Tab, Enter", "p"}, // from the check box
             {"P, Tab, Early Return, Tab, Early Space, Early Return", "open"},
             {"P, Tab, Tab, Space", "p"},
             {"P, Tab, Tab, Tab, Return", "none"},
             {"P, Escape", "none"},
             {"Return", "none"}}) {
        SCOPED_TRACE(actions.toStdString());
        QPointer<QLineEdit> field;
        bool isOpen = false;
        withNextAlert([&, actions = actions](QDialog &dialog) {
            field = dialog.findChild<QLineEdit *>("alertPasswordField");
            auto *const box = dialog.findChild<QCheckBox *>();
            ASSERT_TRUE(field && box);
            EXPECT_EQ(field->echoMode(), QLineEdit::Password);
            EXPECT_FALSE(box->isChecked());
            box->click();
            act(dialog, actions);
            isOpen = dialog.isVisible();
            dialog.close();
        });
        const auto typed = panel.passwordForSSHKey("a");
        EXPECT_EQ(isOpen ? "open" : typed.value_or("none"), answer);
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
        expectNames(dialog);
        auto *const text = dialog.findChildren<QPlainTextEdit *>().last();
        EXPECT_EQ(text->verticalScrollBar()->maximum(), 0) << "the first line can go away";
        text->selectAll();
        text->copy();
        EXPECT_EQ(QApplication::clipboard()->text().toStdString(), prompt);
        EXPECT_GT(text->document()->lineCount(), 8);
        EXPECT_LE(text->document()->idealWidth(), text->width());
        act(dialog, "4, 2, Return");
    });
    EXPECT_EQ(SSHSessionPasswordPanel().responseToKeyboardPrompt(prompt), "42");
}
