#include "Examples/Console/OutputPane.h"

#include "Examples/Console/Outcome.h"

#include <QFileDialog>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QSaveFile>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace {

// More would take long to lay out.
constexpr int mostCharacters = 262'144;
constexpr int mostLines = 10'000;
constexpr std::size_t mostKept = 16'777'216; // bytes

// What can be shown of it.
QString endOf(const QString &text) {
    const qsizetype end = text.size();
    qsizetype begin = end;
    for (int lines = 1; begin > 0 && end - begin < mostCharacters; --begin)
        if (text[begin - 1] == QLatin1Char('\n') && ++lines > mostLines)
            break;
    return text.sliced(begin);
}

// How many characters at its front are too many.
int excessOf(const QTextDocument &document) {
    const int lines = document.blockCount() - mostLines;
    return std::max({0, document.characterCount() - 1 - mostCharacters,
                     lines > 0 ? document.findBlockByNumber(lines).position() : 0});
}

} // namespace

OutputPane::OutputPane(const QString &title)
    : mTitle(title), mHeading(new QLabel(title, this)), mText(new QPlainTextEdit(this)),
      mSave(new QToolButton(this)) {
    mText->setReadOnly(true);
    mText->setUndoRedoEnabled(false); // it would remember all that was ever shown
    mText->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    mText->setLineWrapMode(QPlainTextEdit::NoWrap);
    mText->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    mText->setAccessibleName(title);
    mText->setMinimumHeight(3 * mText->fontMetrics().lineSpacing());
    mSave->setText(QStringLiteral("Save…"));
    mSave->setAccessibleName(QStringLiteral("Save ") + title);
    connect(mSave, &QToolButton::clicked, this, &OutputPane::save);
    followEnd();
    describe();

    auto *const header = new QHBoxLayout;
    header->addWidget(mHeading, 1);
    header->addWidget(mSave);
    auto *const rows = new QVBoxLayout(this);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->addLayout(header);
    rows->addWidget(mText, 1);
}

void OutputPane::followEnd() {
    QScrollBar *const bar = mText->verticalScrollBar();
    connect(bar, &QScrollBar::rangeChanged, this, [this, bar](int /*minimum*/, int maximum) {
        if (bar->value() >= mEnd - 1) // Ctrl+End leaves it one line short
            bar->setValue(maximum);
        mEnd = maximum;
    });
}

void OutputPane::clear() {
    mSize = 0;
    mKept.clear();
    mStream = {};
    mText->clear();
    mIsShownWhole = true;
    describe();
}

void OutputPane::append(std::string_view bytes) {
    mSize += bytes.size();
    mKept.append(bytes);
    mKept.removeFromFront(mKept.size() - std::min(mKept.size(), mostKept));
    show(mStream.take(bytes));
}

void OutputPane::finish() {
    show(mStream.rest());
}

void OutputPane::show(const QString &text) {
    const QString end = endOf(text);
    QTextCursor cursor(mText->document());
    cursor.movePosition(QTextCursor::End);
    cursor.insertText(end);
    const int excess = excessOf(*mText->document());
    mIsShownWhole = mIsShownWhole && end.size() == text.size() && excess == 0;
    if (excess > 0)
        removeFromFront(excess);
    describe();
}

// What the user has scrolled to stays where it is.
void OutputPane::removeFromFront(int characters) {
    QScrollBar *const bar = mText->verticalScrollBar();
    const bool isAtEnd = bar->value() == bar->maximum();
    const int lines = mText->blockCount();
    QTextCursor cursor(mText->document());
    cursor.setPosition(characters, QTextCursor::KeepAnchor);
    cursor.removeSelectedText();
    if (!isAtEnd)
        bar->setValue(bar->value() - (lines - mText->blockCount()));
}

void OutputPane::describe() {
    QString size = sizeText(mSize);
    if (!mIsShownWhole)
        size += QStringLiteral("; the end is shown");
    mHeading->setText(mSize == 0 ? mTitle : QStringLiteral("%1 (%2)").arg(mTitle, size));
    mSave->setEnabled(mSize > 0);
}

// For the user.
QString OutputPane::keptPart() const {
    return mKept.size() == mSize
               ? mTitle
               : QStringLiteral("the last %1 of %2").arg(sizeText(mKept.size()), mTitle);
}

void OutputPane::save() {
    const QString path = QFileDialog::getSaveFileName(this, QStringLiteral("Save ") + keptPart());
    if (path.isEmpty())
        return;
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) &&
        file.write(mKept.data(), static_cast<qint64>(mKept.size())) >= 0 && file.commit())
        return;
    QMessageBox::warning(this, QStringLiteral("Not saved"), file.errorString());
}
