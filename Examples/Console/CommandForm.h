// The command to run, with its options.
#pragma once

#include "Examples/Console/Connection.h"

#include <QGroupBox>

class FileField;
class HistoryLineEdit;
class QCheckBox;
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

  Q_SIGNALS:
    void runRequested();

  private:
    void run();
    void updateFields();

    HistoryLineEdit *mCommand;
    QPushButton *mRun;
    QCheckBox *mAsAdministrator;
    QLineEdit *mAdminPassword;
    FileField *mStdin;
    bool mIsReady = false;
};
