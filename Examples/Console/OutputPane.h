// One of a command's two outputs: monospaced, literal, to be copied or saved.
#pragma once

#include <SSHSession/SSHCommand.h>

#include <QWidget>

class QLabel;
class QPlainTextEdit;
class QToolButton;

class OutputPane final : public QWidget {
    Q_OBJECT

  public:
    explicit OutputPane(const QString &title);

    // `shown` is what can be seen of `bytes`; saving writes them all, as they are.
    void present(const SSHDataRef &bytes, const QString &shown);

  private:
    void save();

    const QString mTitle;
    SSHDataRef mData;
    QLabel *mHeading;
    QPlainTextEdit *mText;
    QToolButton *mSave;
};
