// One of a command's two outputs: monospaced, literal, to be copied or saved.
#pragma once

#include "Examples/Console/VisibleText.h"

#include <SSHSession/ByteBuffer.h>

#include <QWidget>

#include <string_view>

class QLabel;
class QPlainTextEdit;
class QToolButton;

class OutputPane final : public QWidget {
    Q_OBJECT

  public:
    explicit OutputPane(const QString &title);

    // For the output of another command.
    void clear();

    // Shows what has come, and goes to the end, unless the user has scrolled away from it. Of a
    // long output the beginning goes, from the view soon, and from what can be saved later.
    void append(std::string_view bytes);

    // Nothing more comes.
    void finish();

  private:
    void followEnd();
    void show(const QString &text);
    void removeFromFront(int characters);
    void describe();
    QString keptPart() const;
    void save();

    const QString mTitle;
    std::size_t mSize = 0;         // of all that has come
    SSHPlatform::ByteBuffer mKept; // its end, byte for byte
    VisibleTextStream mStream;
    bool mIsShownWhole = true;
    int mEnd = 0; // where the scroll bar stands there
    QLabel *mHeading;
    QPlainTextEdit *mText;
    QToolButton *mSave;
};
