#include "Examples/Console/ProblemPane.h"

#include "Examples/Console/LiteralText.h"

#include <QApplication>
#include <QClipboard>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QStyle>

#include <algorithm>

namespace {

constexpr int iconSize = 32;
constexpr int mostLines = 12;

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

} // namespace

ProblemPane::ProblemPane()
    : mDescription(literalLabel(this)), mSuggestion(literalLabel(this)),
      mOrigin(literalLabel(this)), mReason(new LiteralText(QStringLiteral("Reason"), this)) {
    setFrameShape(QFrame::StyledPanel);
    QFont bold = font();
    bold.setBold(true);
    mDescription->setFont(bold);

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
    mReason->present(problem.reason, mostLines);
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
