// What went wrong: description, suggestion, and the reason as a monospaced text to be copied.
#pragma once

#include "Examples/Console/Outcome.h"

#include <QFrame>

class LiteralText;
class QLabel;

class ProblemPane final : public QFrame {
    Q_OBJECT

  public:
    ProblemPane();

    void present(const Problem &problem);
    QSize minimumSizeHint() const override;

  private:
    void copy() const;

    Problem mProblem;
    QLabel *mDescription;
    QLabel *mSuggestion;
    QLabel *mOrigin;
    LiteralText *mReason;
};
