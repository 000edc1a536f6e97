#include "Examples/Console/CommandForm.h"

#include "Examples/Console/FileField.h"
#include "Examples/Console/HistoryLineEdit.h"

#include <SSHSession/QtSecret.h>

#include <QCheckBox>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>

CommandForm::CommandForm()
    : QGroupBox(QStringLiteral("Command")), mCommand(new HistoryLineEdit(this)),
      mRun(new QPushButton(QStringLiteral("&Run"), this)),
      mAsAdministrator(new QCheckBox(QStringLiteral("Run as &administrator"), this)),
      mAdminPassword(new QLineEdit(this)),
      mStdin(new FileField(QStringLiteral("Standard input"), QStringLiteral("None"))) {
    mCommand->setPlaceholderText(
        QStringLiteral("Command line; the arrow keys bring back earlier ones"));
    mCommand->setAccessibleName(QStringLiteral("Command"));
    mAdminPassword->setEchoMode(QLineEdit::Password);
    mAdminPassword->setPlaceholderText(QStringLiteral("Password for sudo"));
    mStdin->setToolTip(QStringLiteral("Without a file, a command that reads its standard input "
                                      "waits for ever."));
    auto *const stdinLabel = new QLabel(QStringLiteral("Standard &input"));
    stdinLabel->setBuddy(mStdin);

    auto *const grid = new QGridLayout(this);
    grid->addWidget(mCommand, 0, 0, 1, 4);
    grid->addWidget(mRun, 0, 4);
    grid->addWidget(mAsAdministrator, 1, 0);
    grid->addWidget(mAdminPassword, 1, 1);
    grid->addWidget(stdinLabel, 1, 2);
    grid->addWidget(mStdin, 1, 3, 1, 2);
    grid->setColumnStretch(1, 1);
    grid->setColumnStretch(3, 1);

    connect(mCommand, &QLineEdit::returnPressed, this, &CommandForm::run);
    connect(mAdminPassword, &QLineEdit::returnPressed, this, &CommandForm::run);
    connect(mStdin, &FileField::returnPressed, this, &CommandForm::run);
    connect(mRun, &QPushButton::clicked, this, &CommandForm::run);
    connect(mCommand, &QLineEdit::textChanged, this, &CommandForm::updateFields);
    connect(mAsAdministrator, &QCheckBox::toggled, this, &CommandForm::updateFields);
    updateFields();
}

CommandForm::~CommandForm() {
    SSHPlatform::wipe(*mAdminPassword);
}

CommandRequest CommandForm::request() const {
    CommandRequest request;
    request.command = mCommand->text().toStdString();
    if (mAsAdministrator->isChecked())
        request.adminPassword = SSHPlatform::secretOf(*mAdminPassword);
    request.stdinFile = mStdin->path();
    return request;
}

void CommandForm::setCommand(const QString &command) {
    mCommand->setText(command);
}

void CommandForm::follow(const Connection &connection) {
    const bool wasReady = mIsReady;
    mIsReady = connection.isConnected() && !connection.isCalling() && !connection.isClosing();
    updateFields();
    if (mIsReady && !wasReady)
        mCommand->setFocus();
}

void CommandForm::run() {
    if (!mRun->isEnabled())
        return;
    mCommand->remember();
    Q_EMIT runRequested();
}

void CommandForm::updateFields() {
    mAdminPassword->setEnabled(mAsAdministrator->isChecked());
    mRun->setEnabled(mIsReady && !mCommand->text().isEmpty());
}
