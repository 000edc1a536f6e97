// The fields that say where to connect and as whom, and the connections that were saved.
#pragma once

#include "Examples/Console/Connection.h"
#include "Examples/Console/SavedConnections.h"

#include <QGroupBox>
#include <QTimer>

class QComboBox;
class QLineEdit;
class QPushButton;
class QSpinBox;

class ConnectionForm final : public QGroupBox {
    Q_OBJECT

  public:
    // Filled in for the connection that was used last.
    explicit ConnectionForm(const QString &settingsFile);
    ConnectionForm(const ConnectionForm &) = delete;
    ConnectionForm &operator=(const ConnectionForm &) = delete;
    ~ConnectionForm() override; // wipes the password, which stays in its field till then

    ConnectionParameters parameters() const;
    // For another connection, so that the password goes.
    void fill(const SavedConnection &connection);

    // Shows which of connecting and disconnecting is possible.
    void follow(const Connection &connection);

    // In its first field to type in.
    void takeFocus();

  Q_SIGNALS:
    void connectRequested();
    void disconnectRequested();
    void failed(const Problem &problem);

  private:
    void layOut();
    void wire();
    void listSaved();
    void choose(int index);
    void save();
    void remove();
    void report(bool isWritten);
    SavedConnection entered() const;
    void request();
    void updateButtons();

    const SavedConnections mConnections;
    QComboBox *mSaved;
    QPushButton *mSave;
    QPushButton *mRemove;
    QLineEdit *mHost;
    QSpinBox *mPort;
    QLineEdit *mUser;
    QLineEdit *mPassword;
    QLineEdit *mKeyFile;
    QPushButton *mChoose;
    QPushButton *mButton;
    QTimer mSettling; // runs while a click may still be the second one on the same button
    bool mIsIdle = true;
    bool mIsClosing = false;
    bool mIsCalling = false;
};
