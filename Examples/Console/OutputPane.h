// One of a command's two outputs: monospaced, literal, to be searched, copied or saved.
#pragma once

#include "Examples/Console/VisibleText.h"

#include <SSHSession/ByteBuffer.h>

#include <QWidget>

#include <string_view>

class LiteralText;
class Notice;
class QLabel;
class QLineEdit;
class QPushButton;

class OutputPane final : public QWidget {
    Q_OBJECT

  public:
    // The letter behind "&" in the title is the key to it.
    explicit OutputPane(const QString &title);

    // For the output of another command.
    void clear();

    // Shows what has come, and goes to the end, unless the user has scrolled away from it. Of a
    // long output the beginning goes, from the view soon, and from what is kept later.
    void append(std::string_view bytes);

    // Nothing more comes.
    void finish();

    // All that is kept is searched, copied and saved. A place that is found before what is shown is
    // shown in its stead, until the search is closed.
    void openFind();
    void findNext() { find(false); }
    void findPrevious() { find(true); }
    void copyAll();
    void save();

  private:
    void layOut();
    void followEnd();
    void show(const QString &text);
    void removeFromFront(int characters);
    void describe();
    QString keptText();
    QString keptPart() const;
    void find(bool isBackwards);
    void reveal(qsizetype position, qsizetype size);
    qsizetype shownSize() const;
    void closeFind();

    const QString mTitle;
    const QString mName;           // the title without its "&"
    std::size_t mSize = 0;         // of all that has come
    SSHPlatform::ByteBuffer mKept; // its end, byte for byte
    VisibleTextStream mStream;
    bool mIsFinished = false;
    bool mIsShownWhole = true;
    bool mIsEnd = true;     // what is shown; else a place that was found
    QString mSearched;      // all that is kept, at the time of the search
    qsizetype mShownAt = 0; // the position in it of what is shown
    int mBottom = 0;        // where the scroll bar stands at the end
    QLabel *mHeading;
    Notice *mNotice;
    LiteralText *mText;
    QWidget *mFindRow;
    QLineEdit *mWanted;
    QPushButton *mFind;
    QPushButton *mCopy;
    QPushButton *mSave;
};
