// What the parts of the window are made of.
#pragma once

#include <QLabel>
#include <QPalette>
#include <QPlainTextEdit>

class QComboBox;
class QLineEdit;
class QPushButton;

// A label with the letter behind "&" as the field's key. Screen readers know the field by it.
QLabel *labelFor(QWidget *field, const QString &text);

// Fills the field with the path of a file to choose. Screen readers know it as "Choose" and `name`.
QPushButton *chooserFor(QLineEdit *field, const QString &name);

// A field for a line, with a list of earlier ones to choose from. What is typed stays as it is
// typed: completed to an earlier one, it would be another command, or another connection's name.
QComboBox *entryList(const QString &name, const QString &placeholder);

// The desktop's own, or a dark one for displays without any. Placeholders can be read in both,
// which they cannot in the usual half of the text's strength.
QPalette consolePalette(bool isDark);

// A line that says how things stand, to screen readers as well.
class Notice final : public QLabel {
    Q_OBJECT

  public:
    Notice();

    // Shown, and spoken as well; `setText` is for what only ticks on.
    void say(const QString &text);

  Q_SIGNALS:
    void said(const QString &text);
};

// A text from elsewhere, as it is: monospaced and to be copied.
class LiteralText final : public QPlainTextEdit {
    Q_OBJECT

  public:
    explicit LiteralText(const QString &name);

    // As high as the text, but for `most` lines at most; where the screen is low, it shrinks to a
    // few.
    void fit(int most);
    QSize sizeHint() const override;
};
