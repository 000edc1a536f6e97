// A line edit that remembers what was entered; the arrow keys bring it back, as in a shell.
#pragma once

#include <QLineEdit>
#include <QStringList>

class HistoryLineEdit final : public QLineEdit {
    Q_OBJECT

  public:
    using QLineEdit::QLineEdit;

    // Makes the current text the newest entry.
    void remember();

  protected:
    void keyPressEvent(QKeyEvent *event) override;

  private:
    void goTo(qsizetype position);

    QStringList mEntries;
    qsizetype mPosition = 0; // mEntries.size(): the text that is being written
    QString mDraft;
};
