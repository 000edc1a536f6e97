// What the user sees and which keys do what, with real events sent to the real dialogs.
#include "Tests/Qt/QtTest.h"

#include <SSHSession/SSHSessionPasswordPanel.h>

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTextBlock>
#include <QTextLayout>
#include <QTranslator>

#include <utility>

namespace {

constexpr int refused = 0;
constexpr int stays = -1; // on the screen

int answerTo(std::vector<SSHPlatform::AlertButton> buttons, const char *actions) {
    bool isOpen = false;
    withNextAlert([&](QDialog &dialog) {
        act(dialog, actions);
        isOpen = dialog.isVisible();
        dialog.close();
    });
    SSHPlatform::Alert alert;
    alert.messageText = "message";
    alert.informativeText = "details";
    alert.buttons = std::move(buttons);
    const auto answer = SSHPlatform::alertPresenter()->runModal(alert);
    return isOpen ? stays : static_cast<int>(answer);
}

} // namespace

class AlertTest : public QtTest {};

TEST_F(AlertTest, OnlyTheKeyEquivalentAndTheMousePressAButton) {
    struct Row {
        const char *actions;
        int ifUnknown;
        int ifChanged;
    };
    for (const auto &[actions, ifUnknown, ifChanged] : std::vector<Row>{
             {"Return", 1000, 1001},
             {"Enter", 1000, 1001},
             {"Tab, Return", 1000, 1001}, // the focus is in a text now
             {"Tab, Tab, Enter", 1000, 1001},
             {"Held Return", stays, stays},
             {"Shift+Return", stays, stays},
             {"Escape", stays, stays},
             {"Space, Tab, Space, Tab, Space, Tab, Space", stays, stays},
             {"Alt+A, Alt+C, A, C", stays, stays},
             {"Click:Add and Connect", 1000, 1000},
             {"Click:Cancel", 1001, 1001},
             {"Close", refused, refused},
         }) {
        SCOPED_TRACE(actions);
        EXPECT_EQ(answerTo({{"Add and Connect", "\r"}, {"Cancel", ""}}, actions), ifUnknown);
        EXPECT_EQ(answerTo({{"Add and Connect", ""}, {"Cancel", "\r"}}, actions), ifChanged);
    }
    EXPECT_EQ(answerTo({{"&Add", ""}, {"&Cancel", ""}}, "Alt+A, Alt+C, Return"), stays);
    EXPECT_EQ(answerTo({{"&Add", ""}, {"&Cancel", ""}}, "Click:&&Add"), 1000);
    EXPECT_EQ(answerTo({}, "Return"), 1000);
    EXPECT_EQ(answerTo({}, "Click:OK"), 1000);
}

TEST_F(AlertTest, TextsAreLiteralWrappedAndCopiedExactly) {
    SSHPlatform::Alert alert;
    alert.style = SSHPlatform::AlertStyle::Critical;
    alert.messageText = "Key \"<b>%s%n</b>\"\n&amp; &x";
    alert.informativeText = "Host key: " + std::string(700, 'A') + "/+==";
    withNextAlert([&](QDialog &dialog) {
        const auto texts = dialog.findChildren<QPlainTextEdit *>();
        ASSERT_EQ(texts.size(), 2);
        EXPECT_EQ(texts[0]->toPlainText().toStdString(), alert.messageText);
        texts[1]->selectAll();
        texts[1]->copy();
        EXPECT_EQ(QApplication::clipboard()->text().toStdString(), alert.informativeText);
        EXPECT_GT(texts[1]->document()->firstBlock().layout()->lineCount(), 8);
        EXPECT_LE(texts[1]->document()->idealWidth(), texts[1]->width());
        dialog.close();
    });
    SSHPlatform::alertPresenter()->runModal(alert);
}

TEST_F(AlertTest, AnswersOfThePasswordPanel) {
    struct German final : QTranslator {
        QString translate(const char *context, const char *text, const char * /*comment*/,
                          int /*number*/) const override {
            return context == std::string("SSHSession") && text == std::string("OK") ? "Gut" : "";
        }
        bool isEmpty() const override { return false; }
    } german;
    QCoreApplication::installTranslator(&german);
    SSHSessionPasswordPanel panel;
    for (const auto &[actions, answer] :
         std::vector<std::pair<const char *, std::optional<std::string>>>{
             {"P, W, Return", "pw"},
             {"P, W, Click:Gut", "pw"},
             {"P, Tab, Enter", "p"}, // from the check box
             {"P, W, Click:Cancel", std::nullopt},
             {"P, W, Escape", std::nullopt},
             {"P, W, Close", std::nullopt},
             {"Return", std::nullopt},
             {"Click:Gut", std::nullopt},
         }) {
        SCOPED_TRACE(actions);
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
        });
        EXPECT_EQ(panel.passwordForSSHKey("a\"b%n<i>"), answer);
        ASSERT_TRUE(field) << "the nib still owns its views";
        EXPECT_EQ(field->text(), "");
    }
    withNextAlert([](QDialog &dialog) {
        EXPECT_FALSE(dialog.findChild<QCheckBox *>());
        EXPECT_EQ(textOf(dialog), "\nAuthenticate SSH using keybpard-interactive.\n<b>Code?</b>");
        act(dialog, "4, 2, Return");
    });
    EXPECT_EQ(panel.responseToKeyboardPrompt("<b>Code?</b>"), "42");
}

TEST_F(AlertTest, Resources) {
    const auto presenter = SSHPlatform::alertPresenter();
    EXPECT_EQ(presenter->loadNib("missing"), nullptr);
    EXPECT_EQ(presenter->loadImage("missing", "icns"), nullptr);
    EXPECT_NE(presenter->loadImage("SSHLockAndKeys", "icns"), nullptr);
}
