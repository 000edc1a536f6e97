#include "Examples/Console/Widgets.h"

#include <QAbstractItemView>
#include <QAccessibleWidget>
#include <QApplication>
#include <QComboBox>
#include <QFileDialog>
#include <QFontDatabase>
#include <QLineEdit>
#include <QPushButton>

#include <algorithm>

namespace {

constexpr int fewestLines = 4;
constexpr int usualLineLength = 80;

int lineCount(const QString &text) {
    int count = 0;
    for (const QStringView line : text.tokenize(u'\n'))
        count += 1 + static_cast<int>(line.size()) / usualLineLength;
    return count;
}

int heightOfLines(const QPlainTextEdit &edit, int lines) {
    const auto margin = static_cast<int>(edit.document()->documentMargin());
    const QFontMetrics font = edit.fontMetrics();
    // With some room: a last line that only just fits counts as hidden, and has a scroll bar.
    return lines * font.lineSpacing() + font.descent() + 2 * (edit.frameWidth() + margin);
}

QPalette darkPalette() {
    const QColor window(0x1f, 0x21, 0x24);
    const QColor text(0xe6, 0xe8, 0xea);
    QPalette palette(text, window); // derives the shades of frames and buttons
    palette.setColor(QPalette::Base, QColor(0x2c, 0x2f, 0x34));
    palette.setColor(QPalette::AlternateBase, window);
    palette.setColor(QPalette::Button, QColor(0x3a, 0x3e, 0x44));
    palette.setColor(QPalette::Link, QColor(0x6c, 0xb0, 0xf5));
    return palette;
}

// Of all roles it is this one that screen readers speak when it is shown.
QAccessibleInterface *notificationOf(const QString & /*className*/, QObject *object) {
    auto *const notice = qobject_cast<Notice *>(object);
    return notice ? new QAccessibleWidget(notice, QAccessible::Notification) : nullptr;
}

} // namespace

QComboBox *entryList(const QString &name, const QString &placeholder) {
    auto *const list = new QComboBox;
    list->setEditable(true);
    list->setInsertPolicy(QComboBox::NoInsert);
    list->setCompleter(nullptr);
    list->lineEdit()->setPlaceholderText(placeholder);
    list->lineEdit()->setAccessibleName(name);
    list->view()->setAccessibleName(name);
    return list;
}

QLabel *labelFor(QWidget *field, const QString &text) {
    auto *const label = new QLabel(text);
    label->setBuddy(field);
    return label;
}

QPushButton *chooserFor(QLineEdit *field, const QString &name) {
    auto *const button = new QPushButton(QStringLiteral("Choose…"));
    button->setAccessibleName(QStringLiteral("Choose ") + name);
    QObject::connect(button, &QPushButton::clicked, field, [field, name] {
        const QString path = QFileDialog::getOpenFileName(field, name, field->text());
        if (!path.isEmpty())
            field->setText(path);
    });
    return button;
}

QPalette consolePalette(bool isDark) {
    constexpr int faintAlpha = 155;
    QPalette palette = isDark ? darkPalette() : QApplication::palette();
    QColor faint = palette.color(QPalette::Text);
    faint.setAlpha(faintAlpha);
    palette.setColor(QPalette::PlaceholderText, faint);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, faint);
    palette.setColor(QPalette::Highlight, QColor(0x2f, 0x6f, 0xbd)); // Qt's own is too light
    palette.setColor(QPalette::HighlightedText, Qt::white);
    return palette;
}

Notice::Notice() {
    QAccessible::installFactory(notificationOf); // again and again does no harm
    setTextFormat(Qt::PlainText);
    setTextInteractionFlags(Qt::TextSelectableByMouse);
}

void Notice::say(const QString &text) {
    setText(text);
    setAccessibleName(text);
    QAccessibleEvent shown(this, QAccessible::ObjectShow);
    QAccessible::updateAccessibility(&shown);
    Q_EMIT said(text);
}

LiteralText::LiteralText(const QString &name) {
    setReadOnly(true);
    setUndoRedoEnabled(false); // it would remember all that was ever shown
    setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setAccessibleName(name);
}

QSize LiteralText::sizeHint() const {
    const QSize usual = QPlainTextEdit::sizeHint();
    return {usual.width(), maximumHeight() < QWIDGETSIZE_MAX ? maximumHeight() : usual.height()};
}

void LiteralText::fit(int most) {
    const int lines = lineCount(toPlainText());
    setMinimumHeight(heightOfLines(*this, std::min(lines, fewestLines)));
    setMaximumHeight(heightOfLines(*this, std::min(lines, most)));
    updateGeometry();
}
