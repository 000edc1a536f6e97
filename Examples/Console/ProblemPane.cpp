#include "Examples/Console/ProblemPane.h"

#include "Examples/Console/Widgets.h"

#include <QApplication>
#include <QClipboard>
#include <QGridLayout>
#include <QPushButton>
#include <QShortcut>

namespace {

constexpr int mostLines = 16;

void append(QTextCursor &cursor, const QString &text, const QFont &font) {
    QTextCharFormat format;
    format.setFont(font);
    if (text.isEmpty())
        return;
    if (!cursor.atStart())
        cursor.insertBlock();
    cursor.insertText(text, format);
}

} // namespace

ProblemPane::ProblemPane()
    : QGroupBox(QStringLiteral("What went wron&g")),
      mText(new LiteralText(QStringLiteral("What went wrong"))) {
    auto *const copyButton = new QPushButton(QStringLiteral("Cop&y"));
    auto *const dismissButton = new QPushButton(QStringLiteral("Dismiss"));
    dismissButton->setToolTip(QStringLiteral("Escape"));
    auto *const escape = new QShortcut(Qt::Key_Escape, this);
    escape->setContext(Qt::WidgetWithChildrenShortcut);
    connect(copyButton, &QPushButton::clicked, this, &ProblemPane::copy);
    connect(dismissButton, &QPushButton::clicked, this, &ProblemPane::dismiss);
    connect(escape, &QShortcut::activated, this, &ProblemPane::dismiss);

    auto *const grid = new QGridLayout(this);
    grid->addWidget(mText, 0, 0, 1, 3);
    grid->addWidget(copyButton, 1, 1);
    grid->addWidget(dismissButton, 1, 2);
    grid->setColumnStretch(0, 1);
}

void ProblemPane::present(const Problem &problem) {
    QFont bold = font();
    bold.setBold(true);
    mText->clear();
    QTextCursor cursor(mText->document());
    append(cursor, problem.description, bold);
    append(cursor, problem.suggestion, font());
    append(cursor, problem.reason, mText->font());
    append(cursor, problem.origin, font());
    mText->moveCursor(QTextCursor::Start);
    mText->fit(mostLines);
    show();
    mText->setFocus();
}

void ProblemPane::copy() const {
    QApplication::clipboard()->setText(mText->toPlainText());
}

void ProblemPane::dismiss() {
    hide();
    Q_EMIT dismissed();
}
