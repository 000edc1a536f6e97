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
    QPushButton *button = nullptr;
    serveUntil([&] {
        for (auto *const each : window.findChildren<QPushButton *>())
            if (each->text() == title)
                button = each;
        return button != nullptr;
    });
    ASSERT_TRUE(button) << title.toStdString();
    QTest::mouseClick(button, Qt::LeftButton);
}

void act(QDialog &dialog, const QString &actions) {
    auto *const settling = dialog.findChild<QTimer *>("settling");
    for (const QString &action : actions.split(", ")) {
        const bool isEarly = action.startsWith("Early ");
        if (isEarly)
            settling->start(std::chrono::hours(1)); // on no machine too late
        else
            settling->stop();
        if (isEarly && action.contains("Click:")) {
            click(dialog, action.mid(12));
        } else if (action == "Close") {
            dialog.close();
        } else if (action.startsWith("Click:")) {
            click(dialog, action.mid(6));
        } else if (action == "Held Return") {
            QKeyEvent held(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier, "\r", true);
            QApplication::sendEvent(dialog.focusWidget(), &held);
        } else if (action == "Repeated Return") {
            for (const auto type : {QEvent::KeyRelease, QEvent::KeyPress}) {
                QKeyEvent event(type, Qt::Key_Return, Qt::NoModifier, "\r");
                event.setTimestamp(4711);
                QApplication::sendEvent(dialog.focusWidget(), &event);
            }
        } else {
            const QKeyCombination keys = QKeySequence(action.mid(isEarly ? 6 : 0))[0];
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

std::string namelessIn(const QWidget &widget) {
    std::string nameless;
    for (auto *const field : widget.findChildren<QWidget *>())
        if ((field->focusPolicy() & Qt::TabFocus) != 0 && !field->focusProxy() &&
            QAccessible::queryAccessibleInterface(field)->text(QAccessible::Name).isEmpty())
            nameless +=
                field->metaObject()->className() + (' ' + field->objectName().toStdString()) + '\n';
    return nameless;
}

int main(int argc, char **argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
