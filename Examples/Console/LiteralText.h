// A text from elsewhere, as it is: monospaced, to be copied, and no higher than it must be.
#pragma once

#include <QPlainTextEdit>

class LiteralText final : public QPlainTextEdit {
    Q_OBJECT

  public:
    LiteralText(const QString &name, QWidget *parent);

    // Hidden when there is no text. As high as the text, but for `most` lines at most; where the
    // screen is low, it shrinks to a few.
    void present(const QString &text, int most);
};
