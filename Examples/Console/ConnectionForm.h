// The fields that say where to connect and as whom.
#pragma once

#include "Examples/Console/Connection.h"

#include <QGroupBox>
#include <QTimer>

class FileField;
class QLineEdit;
class QPushButton;
class QSpinBox;

class ConnectionForm final : public QGroupBox {
    Q_OBJECT

  public:
    ConnectionForm();
    ConnectionForm(const ConnectionForm &) = delete;
    ConnectionForm &operator=(const ConnectionForm &) = delete;
    ~ConnectionForm() override; // wipes the password, which stays in its field till then

    ConnectionParameters parameters() const;
    void fill(const QString &host, int port, const QString &user, const QString &keyFile);

    // Shows which of connecting and disconnecting is possible.
    void follow(const Connection &connection);

  Q_SIGNALS:
    void connectRequested();
    void disconnectRequested();

  private:
    void request();
    void updateButton();

    QLineEdit *mHost;
    QSpinBox *mPort;
    QLineEdit *mUser;
    QLineEdit *mPassword;
    FileField *mKeyFile;
    QPushButton *mButton;
    QTimer mSettling; // runs while a click may still be the second one on the same button
    bool mIsIdle = true;
    bool mIsClosing = false;
    bool mIsCalling = false;
};
