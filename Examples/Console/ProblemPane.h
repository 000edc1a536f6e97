// What went wrong: description, what to do, and the reason, as a text to be read and copied.
#pragma once

#include "Examples/Console/Outcome.h"

#include <QGroupBox>

class LiteralText;

class ProblemPane final : public QGroupBox {
    Q_OBJECT

  public:
    ProblemPane();

    // Has the focus then, so that it is read out.
    void present(const Problem &problem);

  Q_SIGNALS:
    void dismissed();

  private:
    void copy() const;
    void dismiss();

    LiteralText *mText;
};
