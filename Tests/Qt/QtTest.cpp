#include "Tests/Qt/QtTest.h"

#include <SSHSession/QtPlatform.h>

#include <QApplication>
#include <QLabel>
#include <QTest>
#include <QTimer>

#include <memory>

QtTest::QtTest() {
    SSHPlatform::installQt();
    SSHPlatform::setLogSink([this](const std::string &line) { log.push_back(line); });
}

QtTest::~QtTest() {
    SSHPlatform::install(nullptr, nullptr);
    SSHPlatform::setLogSink(nullptr);
}

void withNextAlert(std::function<void(QDialog &)> act, bool *stayed) {
    auto *const poll = new QTimer(qApp);
    QObject::connect(poll, &QTimer::timeout, poll, [poll, act = std::move(act), stayed] {
        auto *const dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        if (!dialog || !dialog->isVisible() || !dialog->isActiveWindow())
            return;
        poll->stop();
        poll->deleteLater();
        act(*dialog);
        if (!stayed)
            return;
        *stayed = dialog->isVisible();
        dialog->close();
    });
    poll->start(1);
}

void serveUntil(const std::function<bool()> &condition) {
    ASSERT_TRUE(QTest::qWaitFor(condition, 10'000));
}

QPushButton *buttonOf(QWidget &widget, const QString &text) {
    for (auto *const button : widget.findChildren<QPushButton *>())
        if (button->text() == text)
            return button;
    return nullptr;
}

void act(QDialog &dialog, const std::vector<std::string> &actions) {
    for (const std::string &action : actions) {
        const QString text = QString::fromStdString(action);
        if (text == QLatin1String("Close")) {
            dialog.close();
        } else if (text.startsWith(QLatin1String("Click:"))) {
            QTest::mouseClick(buttonOf(dialog, text.mid(6)), Qt::LeftButton);
        } else if (text == QLatin1String("Held Return")) {
            QKeyEvent held(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier, QStringLiteral("\r"),
                           true);
            QApplication::sendEvent(dialog.focusWidget(), &held);
        } else {
            const QKeyCombination keys = QKeySequence(text)[0];
            QWidget *const focus = dialog.focusWidget();
            QTest::keyClick(focus ? focus : &dialog, keys.key(), keys.keyboardModifiers());
        }
    }
}

std::string textOf(const QWidget &widget) {
    QStringList texts;
    for (const auto *const label : widget.findChildren<QLabel *>())
        texts += label->text();
    for (const auto *const text : widget.findChildren<QPlainTextEdit *>())
        texts += text->toPlainText();
    return texts.join(QLatin1Char('\n')).toStdString();
}

int main(int argc, char **argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
