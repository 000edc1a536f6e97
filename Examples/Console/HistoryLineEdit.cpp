#include "Examples/Console/HistoryLineEdit.h"

#include <QKeyEvent>

void HistoryLineEdit::remember() {
    mEntries.removeAll(text());
    mEntries.append(text());
    mPosition = mEntries.size();
    mDraft.clear();
}

void HistoryLineEdit::keyPressEvent(QKeyEvent *event) {
    if (event->key() == Qt::Key_Up)
        goTo(mPosition - 1);
    else if (event->key() == Qt::Key_Down)
        goTo(mPosition + 1);
    else
        QLineEdit::keyPressEvent(event);
}

void HistoryLineEdit::goTo(qsizetype position) {
    if (position < 0 || position > mEntries.size())
        return;
    if (mPosition == mEntries.size())
        mDraft = text();
    mPosition = position;
    setText(position == mEntries.size() ? mDraft : mEntries.at(position));
}
