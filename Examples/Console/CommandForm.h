// The command to run, with its options, and those that ran before. These are kept until the window
// closes, and nowhere else: a command can contain a secret.
#pragma once

#include "Examples/Console/Connection.h"

#include <QGroupBox>

class QCheckBox;
class QComboBox;
class QLineEdit;
class QPushButton;

class CommandForm final : public QGroupBox {
    Q_OBJECT

  public:
    CommandForm();
    CommandForm(const CommandForm &) = delete;
    CommandForm &operator=(const CommandForm &) = delete;
    ~CommandForm() override; // wipes the password, which stays in its field till then

    CommandRequest request() const;
    void setCommand(const QString &command);
    void follow(const Connection &connection);

    // In its first field to type in.
    void takeFocus();

  Q_SIGNALS:
    void runRequested();

  private:
    void run();
    void updateFields();

    QComboBox *mCommand;
    QPushButton *mRun;
    QCheckBox *mAsAdministrator;
    QLineEdit *mAdminPassword;
    QLineEdit *mStdin;
    bool mIsReady = false;
    bool mIsConnected = false;
};
