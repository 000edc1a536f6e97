// One line that says what the connection is doing, with a coloured dot.
#pragma once

#include <QWidget>

class Connection;
class QLabel;

class StatusLine final : public QWidget {
    Q_OBJECT

  public:
    StatusLine();
    void follow(const Connection &connection);

  private:
    QLabel *mDot;
    QLabel *mText;
};
