// What the user sees and which keys do what, with real events sent to the real dialogs.
#include "Tests/Qt/QtTest.h"

#include <SSHSession/SSHSessionPasswordPanel.h>

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QLineEdit>
#include <QTextBlock>
#include <QTextLayout>
#include <QTranslator>

#include <map>
#include <utility>

using SSHPlatform::Alert;
using SSHPlatform::AlertAnswer;
using Actions = std::vector<std::string>;

namespace {

std::string answerTo(const Alert &alert, const Actions &actions) {
    bool stayed = false;
    withNextAlert([&](QDialog &dialog) { act(dialog, actions); }, &stayed);
    const AlertAnswer answer = SSHPlatform::alertPresenter()->runModal(alert);
    if (stayed)
        return "stays";
    return answer == AlertAnswer::Refused ? "refused" : std::to_string(static_cast<int>(answer));
}

Alert alertWith(std::vector<SSHPlatform::AlertButton> buttons) {
    Alert alert;
    alert.messageText = "message";
    alert.informativeText = "details";
    alert.buttons = std::move(buttons);
    return alert;
}

} // namespace

class AlertTest : public QtTest {};

TEST_F(AlertTest, OnlyTheKeyEquivalentAndTheMousePressAButton) {
    const Alert unknown = alertWith({{"Add and Connect", "\r"}, {"Cancel", ""}});
    Alert changed = alertWith({{"Add and Connect", ""}, {"Cancel", "\r"}});
    changed.style = SSHPlatform::AlertStyle::Critical;
    const Alert ampersand = alertWith({{"&Add", ""}, {"&Cancel", ""}});
    const Alert toolkit = alertWith({{"OK"}, {"Cancel"}});
    const Alert plain = alertWith({});
    struct Row {
        const Alert &alert;
        Actions actions;
        std::string answer;
    };
    const std::vector<Row> rows = {
        {unknown, {"Return"}, "1000"},
        {unknown, {"Enter"}, "1000"},
        {unknown, {"Tab", "Return"}, "1000"}, // the focus is in a text now
        {unknown, {"Tab", "Tab", "Enter"}, "1000"},
        {unknown, {"Held Return"}, "stays"},
        {unknown, {"Shift+Return"}, "stays"},
        {unknown, {"Escape"}, "stays"},
        {unknown, {"Space", "Tab", "Space", "Tab", "Space", "Tab", "Space"}, "stays"},
        {unknown, {"Alt+A", "Alt+C", "A", "C"}, "stays"},
        {unknown, {"Click:Add and Connect"}, "1000"},
        {unknown, {"Click:Cancel"}, "1001"},
        {unknown, {"Close"}, "refused"},
        {changed, {"Return"}, "1001"},
        {changed, {"Enter"}, "1001"},
        {changed, {"Tab", "Return"}, "1001"},
        {changed, {"Escape"}, "stays"},
        {changed, {"Space", "Tab", "Space", "Tab", "Space", "Tab", "Space"}, "stays"},
        {changed, {"Alt+A", "Alt+C", "A", "C"}, "stays"},
        {changed, {"Click:Add and Connect"}, "1000"},
        {changed, {"Click:Cancel"}, "1001"},
        {changed, {"Close"}, "refused"},
        {ampersand, {"Alt+A", "Alt+C", "Return"}, "stays"},
        {ampersand, {"Click:&&Add"}, "1000"},
        {toolkit, {"Return"}, "1000"},
        {toolkit, {"Escape"}, "refused"},
        {plain, {"Return"}, "1000"},
        {plain, {"Click:OK"}, "1000"},
    };
    for (std::size_t i = 0; i < rows.size(); ++i)
        EXPECT_EQ(answerTo(rows[i].alert, rows[i].actions), rows[i].answer) << "row " << i;
}

TEST_F(AlertTest, TextsAreLiteralWrappedAndCopiedExactly) {
    Alert alert = alertWith({});
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
    });
    SSHPlatform::alertPresenter()->runModal(alert);
}

TEST_F(AlertTest, AnswersOfThePasswordPanel) {
    const std::vector<std::pair<Actions, std::optional<std::string>>> rows = {
        {{"P", "W", "Return"}, "pw"},
        {{"P", "W", "Click:OK"}, "pw"},
        {{"P", "Tab", "Enter"}, "p"}, // from the check box
        {{"P", "W", "Click:Cancel"}, std::nullopt},
        {{"P", "W", "Escape"}, std::nullopt},
        {{"P", "W", "Close"}, std::nullopt},
        {{"Return"}, std::nullopt},
        {{"Click:OK"}, std::nullopt},
    };
    SSHSessionPasswordPanel panel;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        QPointer<QLineEdit> field;
        QPointer<QCheckBox> box;
        withNextAlert([&](QDialog &dialog) {
            field = dialog.findChild<QLineEdit *>(QStringLiteral("alertPasswordField"));
            box = dialog.findChild<QCheckBox *>();
            ASSERT_TRUE(field && box);
            EXPECT_EQ(dialog.focusWidget(), field);
            EXPECT_EQ(field->echoMode(), QLineEdit::Password);
            EXPECT_EQ(field->text(), QString());
            EXPECT_FALSE(box->isChecked());
            box->click();
            EXPECT_NE(textOf(dialog).find("SSH key \"a\"b%n<i>\"."), std::string::npos);
            act(dialog, rows[i].first);
        });
        EXPECT_EQ(panel.passwordForSSHKey("a\"b%n<i>"), rows[i].second) << "row " << i;
        ASSERT_TRUE(field && box) << "the nib still owns its views";
        EXPECT_EQ(!rows[i].second || field->text().isEmpty(), true) << "row " << i;
    }
    withNextAlert([](QDialog &dialog) {
        EXPECT_FALSE(dialog.findChild<QCheckBox *>());
        EXPECT_EQ(textOf(dialog), "\nAuthenticate SSH using keybpard-interactive.\n<b>Code?</b>");
        act(dialog, {"4", "2", "Return"});
    });
    EXPECT_EQ(panel.responseToKeyboardPrompt("<b>Code?</b>"), "42");
}

TEST_F(AlertTest, ResourcesAndTitles) {
    class German final : public QTranslator {
      public:
        QString translate(const char *context, const char *text, const char * /*comment*/,
                          int /*number*/) const override {
            const bool isTitle = qstrcmp(context, "SSHSession") == 0 && qstrcmp(text, "OK") == 0;
            return isTitle ? QStringLiteral("Gut") : QString();
        }
        bool isEmpty() const override { return false; }
    };
    const auto presenter = SSHPlatform::alertPresenter();
    EXPECT_EQ(presenter->loadNib("missing"), nullptr);
    EXPECT_EQ(presenter->loadImage("missing", "icns"), nullptr);
    EXPECT_NE(presenter->loadImage("SSHLockAndKeys", "icns"), nullptr);
    EXPECT_EQ(presenter->localizedString("OK"), "OK");
    German german;
    QCoreApplication::installTranslator(&german);
    EXPECT_EQ(presenter->localizedString("OK"), "Gut");
    EXPECT_EQ(presenter->localizedString("Cancel"), "Cancel");
}
