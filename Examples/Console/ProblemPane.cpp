#include "Examples/Console/ProblemPane.h"

#include <QApplication>
#include <QClipboard>
#include <QFontDatabase>
#include <QGridLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStyle>

#include <algorithm>

namespace {

constexpr int iconSize = 32;
constexpr int fewestLines = 4; // where the screen is low
constexpr int mostLines = 12;
constexpr int usualLineLength = 80;

// Texts may come from a server: never markup, and never wider than the window.
QLabel *literalLabel(QWidget *parent) {
    auto *const label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    label->setWordWrap(true);
    label->setMinimumWidth(1);
    label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Minimum);
    return label;
}

int lineCount(const QString &text) {
    int count = 0;
    for (const QStringView line : text.tokenize(u'\n'))
        count += 1 + static_cast<int>(line.size()) / usualLineLength;
    return count;
}

int heightOfLines(const QPlainTextEdit &edit, int lines) {
    const auto margin = static_cast<int>(edit.document()->documentMargin());
    return lines * edit.fontMetrics().lineSpacing() + 2 * (edit.frameWidth() + margin);
}

} // namespace

ProblemPane::ProblemPane()
    : mDescription(literalLabel(this)), mSuggestion(literalLabel(this)),
      mOrigin(literalLabel(this)), mReason(new QPlainTextEdit(this)) {
    setFrameShape(QFrame::StyledPanel);
    QFont bold = font();
    bold.setBold(true);
    mDescription->setFont(bold);
    mReason->setReadOnly(true);
    mReason->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    mReason->setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    mReason->setAccessibleName(QStringLiteral("Reason"));

    auto *const icon = new QLabel(this);
    icon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(iconSize));
    auto *const copyButton = new QPushButton(QStringLiteral("Copy"), this);
    auto *const dismissButton = new QPushButton(QStringLiteral("Dismiss"), this);
    connect(copyButton, &QPushButton::clicked, this, &ProblemPane::copy);
    connect(dismissButton, &QPushButton::clicked, this, &QWidget::hide);

    auto *const grid = new QGridLayout(this);
    grid->setColumnStretch(1, 1);
    grid->addWidget(icon, 0, 0, 2, 1, Qt::AlignTop);
    grid->addWidget(mDescription, 0, 1, 1, 3);
    grid->addWidget(mSuggestion, 1, 1, 1, 3);
    grid->addWidget(mReason, 2, 0, 1, 4);
    grid->addWidget(mOrigin, 3, 0, 1, 2);
    grid->addWidget(copyButton, 3, 2);
    grid->addWidget(dismissButton, 3, 3);
}

void ProblemPane::present(const Problem &problem) {
    mProblem = problem;
    mDescription->setText(problem.description);
    mSuggestion->setText(problem.suggestion);
    mSuggestion->setVisible(!problem.suggestion.isEmpty());
    mOrigin->setText(problem.origin);
    mReason->setPlainText(problem.reason);
    const int lines = lineCount(problem.reason);
    mReason->setMinimumHeight(heightOfLines(*mReason, std::min(lines, fewestLines)));
    mReason->setMaximumHeight(heightOfLines(*mReason, std::min(lines, mostLines)));
    mReason->setVisible(!problem.reason.isEmpty());
    resize(parentWidget()->contentsRect().width(), height()); // as it will be
    show();
}

// Wrapped as the texts are, not in the narrowest way, for which the window would have to grow.
QSize ProblemPane::minimumSizeHint() const {
    const int narrowest = QFrame::minimumSizeHint().width();
    return {narrowest, layout()->minimumHeightForWidth(std::max(width(), narrowest))};
}

void ProblemPane::copy() const {
    QStringList parts = {mProblem.description, mProblem.reason, mProblem.suggestion,
                         mProblem.origin};
    parts.removeAll(QString());
    QApplication::clipboard()->setText(parts.join(QLatin1Char('\n')));
}
