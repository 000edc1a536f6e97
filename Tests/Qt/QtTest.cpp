#include "Tests/Qt/QtTest.h"

#include <QAccessible>
#include <QApplication>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>
#include <QTimer>

void withNextAlert(const std::function<void(QDialog &)> &handle) {
    auto *const poll = new QTimer(qApp);
    QObject::connect(poll, &QTimer::timeout, poll, [poll, handle] {
        auto *const dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        if (!dialog || !dialog->isActiveWindow())
            return;
        poll->stop();
        poll->deleteLater();
        handle(*dialog);
    });
    poll->start(1);
}

void serveUntil(const std::function<bool()> &condition) {
    EXPECT_TRUE(QTest::qWaitFor(condition, 10'000));
}

void click(QWidget &window, const QString &title) {
    serveUntil([&] {
        for (auto *const button : window.findChildren<QPushButton *>())
            if (button->text() == title)
                return QTest::mouseClick(button, Qt::LeftButton), true;
        return false;
    });
}

void act(QDialog &dialog, const QString &actions) {
    auto *const settling = dialog.findChild<QTimer *>("settling");
    for (QString action : actions.split(", ")) {
        settling->stop();
        if (action.startsWith("Early ")) {
            settling->start(std::chrono::hours(1)); // on no machine too late
            action.remove(0, 6);
        }
        if (action.startsWith("Click:")) {
            click(dialog, action.mid(6));
        } else if (action.startsWith("Held ") || action.startsWith("Repeated ")) {
            const bool isHeld = action.startsWith("Held ");
            for (const auto type : {QEvent::KeyRelease, QEvent::KeyPress}) {
                QKeyEvent event(type, Qt::Key_Return, Qt::NoModifier, "\r", isHeld);
                event.setTimestamp(isHeld ? 0 : 4711);
                QApplication::sendEvent(dialog.focusWidget(), &event);
            }
        } else {
            const QKeyCombination keys = QKeySequence(action)[0];
            QTest::keyClick(dialog.windowHandle(), keys.key(), keys.keyboardModifiers());
        }
    }
}

std::string textOf(const QWidget &widget) {
    QStringList texts;
    for (const auto *const label : widget.findChildren<QLabel *>())
        texts += label->text();
    for (const auto *const text : widget.findChildren<QPlainTextEdit *>())
        texts += text->toPlainText();
    return texts.join('\n').toStdString();
}

// Qt tells of a field's label where the desktop's own way is to ask for that.
bool hasName(QWidget &field) {
    const auto *const reader = QAccessible::queryAccessibleInterface(&field);
    return !reader->text(QAccessible::Name).isEmpty() ||
           !reader->relations(QAccessible::Label).isEmpty();
}

void expectNames(const QWidget &widget) {
    for (auto *const field : widget.findChildren<QWidget *>())
        EXPECT_TRUE(!(field->focusPolicy() & Qt::TabFocus) || field->focusProxy() ||
                    hasName(*field))
            << field->metaObject()->className();
}

int main(int argc, char **argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
