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

void expectAnswers(const Alert &alert,
                   const std::vector<std::pair<Actions, std::string>> &answers) {
    for (const auto &[actions, answer] : answers)
        EXPECT_EQ(answerTo(alert, actions), answer)
            << testing::PrintToString(actions) << " in the alert whose first button has the key "
            << (alert.buttons.empty() ? "" : alert.buttons[0].keyEquivalent.value_or("none"));
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
    const Actions spaceEverywhere = {"Space", "Tab", "Space", "Tab", "Space", "Tab", "Space"};
    for (const bool isChanged : {false, true}) {
        Alert alert = alertWith(
            {{"Add and Connect", isChanged ? "" : "\r"}, {"Cancel", isChanged ? "\r" : ""}});
        alert.style = isChanged ? SSHPlatform::AlertStyle::Critical : alert.style;
        const std::string byReturn = isChanged ? "1001" : "1000";
        expectAnswers(alert, {{{"Return"}, byReturn},
                              {{"Enter"}, byReturn},
                              {{"Tab", "Return"}, byReturn}, // the focus is in a text now
                              {{"Tab", "Tab", "Enter"}, byReturn},
                              {{"Held Return"}, "stays"},
                              {{"Shift+Return"}, "stays"},
                              {{"Escape"}, "stays"},
                              {spaceEverywhere, "stays"},
                              {{"Alt+A", "Alt+C", "A", "C"}, "stays"},
                              {{"Click:Add and Connect"}, "1000"},
                              {{"Click:Cancel"}, "1001"},
                              {{"Close"}, "refused"}});
    }
    expectAnswers(alertWith({{"&Add", ""}, {"&Cancel", ""}}),
                  {{{"Alt+A", "Alt+C", "Return"}, "stays"}, {{"Click:&&Add"}, "1000"}});
    expectAnswers(alertWith({{"OK"}, {"Cancel"}}), {{{"Return"}, "1000"}, {{"Escape"}, "refused"}});
    expectAnswers(alertWith({}), {{{"Return"}, "1000"}, {{"Click:OK"}, "1000"}});
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
        dialog.close();
    });
    SSHPlatform::alertPresenter()->runModal(alert);
}

TEST_F(AlertTest, AnswersOfThePasswordPanel) {
    const std::vector<std::pair<Actions, std::optional<std::string>>> rows = {
        {{"P", "W", "Return"}, "pw"},
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
        EXPECT_EQ(field->text(), QString()) << "row " << i;
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
