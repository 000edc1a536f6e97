#include "Examples/Console/CommandForm.h"

#include "Examples/Console/Widgets.h"

#include <SSHSession/QtSecret.h>

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QLineEdit>
#include <QPushButton>

CommandForm::CommandForm()
    : QGroupBox(QStringLiteral("Command")),
      mCommand(entryList(QStringLiteral("Command"),
                         QStringLiteral("Command line; the down arrow brings back earlier ones"))),
      mRun(new QPushButton(QStringLiteral("&Run"))),
      mAsAdministrator(new QCheckBox(QStringLiteral("Run as &administrator"))),
      mAdminPassword(new QLineEdit), mStdin(new QLineEdit) {
    mCommand->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    mAdminPassword->setEchoMode(QLineEdit::Password);
    mStdin->setPlaceholderText(QStringLiteral("None"));
    mStdin->setClearButtonEnabled(true);
    mStdin->setToolTip(QStringLiteral("Without a file, a command that reads its standard input "
                                      "waits for ever."));

    auto *const grid = new QGridLayout(this);
    grid->addWidget(labelFor(mCommand, QStringLiteral("Comma&nd")), 0, 0);
    grid->addWidget(mCommand, 0, 1, 1, 3);
    grid->addWidget(mRun, 0, 4);
    grid->addWidget(labelFor(mStdin, QStringLiteral("Standard &input")), 1, 0);
    grid->addWidget(mStdin, 1, 1, 1, 3);
    grid->addWidget(chooserFor(mStdin, QStringLiteral("standard input")), 1, 4);
    grid->addWidget(mAsAdministrator, 2, 1);
    grid->addWidget(labelFor(mAdminPassword, QStringLiteral("Password &for sudo")), 2, 2);
    grid->addWidget(mAdminPassword, 2, 3, 1, 2);
    grid->setColumnStretch(3, 1);

    for (const QLineEdit *const field : {mCommand->lineEdit(), mAdminPassword, mStdin})
        connect(field, &QLineEdit::returnPressed, this, &CommandForm::run);
    connect(mRun, &QPushButton::clicked, this, &CommandForm::run);
    connect(mCommand, &QComboBox::editTextChanged, this, &CommandForm::updateFields);
    connect(mAsAdministrator, &QCheckBox::toggled, this, &CommandForm::updateFields);
    updateFields();
}

CommandForm::~CommandForm() {
    SSHPlatform::wipe(*mAdminPassword);
}

CommandRequest CommandForm::request() const {
    CommandRequest request;
    request.command = mCommand->currentText().toStdString();
    if (mAsAdministrator->isChecked())
        request.adminPassword = SSHPlatform::secretOf(*mAdminPassword);
    request.stdinFile = mStdin->text();
    return request;
}

void CommandForm::setCommand(const QString &command) {
    mCommand->setEditText(command);
}

void CommandForm::takeFocus() {
    mCommand->setFocus();
}

void CommandForm::follow(const Connection &connection) {
    mIsReady = connection.isConnected() && !connection.isCalling() && !connection.isClosing();
    updateFields();
    if (mIsReady && !mIsConnected)
        mCommand->setFocus();
    mIsConnected = mIsReady || (mIsConnected && connection.isConnected());
}

void CommandForm::run() {
    if (!mRun->isEnabled())
        return;
    const QString command = mCommand->currentText();
    if (const int before = mCommand->findText(command); before >= 0)
        mCommand->removeItem(before);
    mCommand->insertItem(0, command);
    mCommand->setCurrentIndex(0);
    mCommand->setFocus(); // the button is about to be disabled
    Q_EMIT runRequested();
}

void CommandForm::updateFields() {
    mAdminPassword->setEnabled(mAsAdministrator->isChecked());
    mRun->setEnabled(mIsReady && !mCommand->currentText().isEmpty());
}
