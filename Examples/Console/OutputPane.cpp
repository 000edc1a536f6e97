#include "Examples/Console/OutputPane.h"

#include "Examples/Console/Outcome.h"
#include "Examples/Console/Widgets.h"

#include <QApplication>
#include <QClipboard>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSaveFile>
#include <QScrollBar>
#include <QShortcut>
#include <QTextBlock>
#include <QTextCursor>
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

QPushButton *button(const QString &title, const QString &name, const QString &keys) {
    auto *const button = new QPushButton(title);
    button->setAccessibleName(name);
    button->setToolTip(keys);
    return button;
}

} // namespace

OutputPane::OutputPane(const QString &title)
    : mTitle(title), mName(QString(title).remove(QLatin1Char('&'))), mNotice(new Notice),
      mText(new LiteralText(mName)), mFindRow(new QWidget), mWanted(new QLineEdit),
      mFind(button(QStringLiteral("Find…"), QStringLiteral("Find in ") + mName,
                   QStringLiteral("Ctrl+F, then F3 and Shift+F3"))),
      mCopy(button(QStringLiteral("Copy all"), QStringLiteral("Copy all of ") + mName,
                   QStringLiteral("Ctrl+Shift+C"))),
      mSave(button(QStringLiteral("Save…"), QStringLiteral("Save ") + mName,
                   QStringLiteral("Ctrl+S"))) {
    mHeading = labelFor(mText, title);
    mText->setLineWrapMode(QPlainTextEdit::NoWrap);
    mText->setMinimumHeight(3 * mText->fontMetrics().lineSpacing());
    mWanted->setPlaceholderText(QStringLiteral("Text to find; Return finds the next"));
    mWanted->setAccessibleName(QStringLiteral("Text to find in ") + mName);
    connect(mWanted, &QLineEdit::returnPressed, this, &OutputPane::findNext);
    connect(mFind, &QPushButton::clicked, this, &OutputPane::openFind);
    connect(mCopy, &QPushButton::clicked, this, &OutputPane::copyAll);
    connect(mSave, &QPushButton::clicked, this, &OutputPane::save);
    layOut();
    followEnd();
    describe();
}

void OutputPane::layOut() {
    auto *const next = button(QStringLiteral("Next"), {}, QStringLiteral("F3"));
    auto *const previous = button(QStringLiteral("Previous"), {}, QStringLiteral("Shift+F3"));
    auto *const close = button(QStringLiteral("Close"), QStringLiteral("Close the search"),
                               QStringLiteral("Escape"));
    auto *const escape = new QShortcut(Qt::Key_Escape, this);
    escape->setContext(Qt::WidgetWithChildrenShortcut);
    connect(next, &QPushButton::clicked, this, &OutputPane::findNext);
    connect(previous, &QPushButton::clicked, this, &OutputPane::findPrevious);
    connect(close, &QPushButton::clicked, this, &OutputPane::closeFind);
    connect(escape, &QShortcut::activated, this, &OutputPane::closeFind);

    auto *const header = new QHBoxLayout;
    header->addWidget(mHeading);
    header->addStretch(1);
    header->addWidget(mNotice);
    for (QWidget *const one : {mFind, mCopy, mSave})
        header->addWidget(one);
    auto *const findRow = new QHBoxLayout(mFindRow);
    findRow->setContentsMargins(0, 0, 0, 0);
    findRow->addWidget(mWanted, 1);
    for (QWidget *const one : {next, previous, close})
        findRow->addWidget(one);
    auto *const rows = new QVBoxLayout(this);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->addLayout(header);
    rows->addWidget(mFindRow);
    rows->addWidget(mText, 1);
    mFindRow->hide();
}

void OutputPane::followEnd() {
    QScrollBar *const bar = mText->verticalScrollBar();
    connect(bar, &QScrollBar::rangeChanged, this, [this, bar](int /*minimum*/, int maximum) {
        if (bar->value() >= mBottom - 1) // Ctrl+End leaves it one line short
            bar->setValue(maximum);
        mBottom = maximum;
    });
}

void OutputPane::clear() {
    mSize = 0;
    mKept.clear();
    mStream = {};
    mText->clear();
    mNotice->clear();
    mSearched.clear();
    mIsFinished = false;
    mIsShownWhole = true;
    mIsEnd = true;
    describe();
}

void OutputPane::append(std::string_view bytes) {
    mSize += bytes.size();
    mKept.append(bytes);
    mKept.removeFromFront(mKept.size() - std::min(mKept.size(), mostKept));
    show(mStream.take(bytes));
}

void OutputPane::finish() {
    mIsFinished = true;
    show(mStream.rest());
}

void OutputPane::show(const QString &text) {
    if (mIsEnd) {
        const QString end = endOf(text);
        QTextCursor cursor(mText->document());
        cursor.movePosition(QTextCursor::End);
        cursor.insertText(end);
        const int excess = excessOf(*mText->document());
        mIsShownWhole = mIsShownWhole && end.size() == text.size() && excess == 0;
        if (excess > 0)
            removeFromFront(excess);
    }
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
    if (!mIsEnd)
        size += QStringLiteral("; a part is shown, Escape shows the end");
    else if (!mIsShownWhole)
        size += QStringLiteral("; the end is shown");
    mHeading->setText(mSize == 0 ? mTitle : QStringLiteral("%1 (%2)").arg(mTitle, size));
    for (QWidget *const one : {mFind, mCopy, mSave})
        one->setEnabled(mSize > 0);
}

// As it is shown.
QString OutputPane::keptText() {
    mStream = {};
    const QString text = mStream.take({mKept.data(), mKept.size()});
    return mIsFinished ? text + mStream.rest() : text;
}

// For the user.
QString OutputPane::keptPart() const {
    return mKept.size() == mSize
               ? mName
               : QStringLiteral("the last %1 of %2").arg(sizeText(mKept.size()), mName);
}

void OutputPane::openFind() {
    mFindRow->show();
    mWanted->setFocus();
    mWanted->selectAll();
}

qsizetype OutputPane::shownSize() const {
    return mText->document()->characterCount() - 1;
}

void OutputPane::find(bool isBackwards) {
    const QString wanted = mWanted->text();
    if (wanted.isEmpty() || mFindRow->isHidden()) {
        openFind();
        return;
    }
    if (mIsEnd) {
        mSearched = keptText();
        mShownAt = mSearched.size() - shownSize();
    }
    const QTextCursor cursor = mText->textCursor();
    const qsizetype here = mShownAt + cursor.selectionStart();
    qsizetype found = -1;
    if (!isBackwards)
        found = mSearched.indexOf(wanted, here + cursor.hasSelection(), Qt::CaseInsensitive);
    else if (here > 0)
        found = mSearched.lastIndexOf(wanted, here - 1, Qt::CaseInsensitive);
    QString wrapped;
    if (found < 0) {
        wrapped = isBackwards ? QStringLiteral(", from the end") : QStringLiteral(", from the top");
        found = isBackwards ? mSearched.lastIndexOf(wanted, -1, Qt::CaseInsensitive)
                            : mSearched.indexOf(wanted, 0, Qt::CaseInsensitive);
    }
    if (found < 0) {
        mNotice->say(QStringLiteral("Not found"));
        return;
    }
    reveal(found, wanted.size());
    const auto before = QStringView(mSearched).first(found + wanted.size() - 1);
    mNotice->say(QStringLiteral("%1 of %2%3")
                     .arg(before.count(wanted, Qt::CaseInsensitive) + 1)
                     .arg(mSearched.count(wanted, Qt::CaseInsensitive))
                     .arg(wrapped));
}

void OutputPane::reveal(qsizetype position, qsizetype size) {
    if (position < mShownAt || position + size > mShownAt + shownSize()) {
        const qsizetype end = std::min(mSearched.size(), position + size + mostLines / 2);
        const QString part = endOf(mSearched.first(end));
        mIsEnd = false;
        mShownAt = end - part.size();
        mText->setPlainText(part);
        describe();
    }
    QTextCursor cursor(mText->document());
    cursor.setPosition(static_cast<int>(position - mShownAt));
    cursor.setPosition(static_cast<int>(position - mShownAt + size), QTextCursor::KeepAnchor);
    mText->setTextCursor(cursor);
    mText->centerCursor();
}

void OutputPane::closeFind() {
    mFindRow->hide();
    mNotice->clear();
    mSearched.clear();
    mText->setFocus();
    if (mIsEnd)
        return;
    mIsEnd = true;
    mText->setPlainText(endOf(keptText()));
    mText->moveCursor(QTextCursor::End);
    describe();
}

void OutputPane::copyAll() {
    QApplication::clipboard()->setText(keptText());
    mNotice->say(QStringLiteral("Copied"));
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
