#include "Examples/Console/ConnectionForm.h"

#include "Examples/Console/FileField.h"

#include <SSHSession/QtSecret.h>

#include <QApplication>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

#include <limits>

namespace {

QLabel *labelFor(QWidget *field, const QString &text) {
    auto *const label = new QLabel(text);
    label->setBuddy(field);
    return label;
}

std::optional<std::string> textOrNone(const QString &text) {
    return text.isEmpty() ? std::nullopt : std::optional(text.toStdString());
}

} // namespace

ConnectionForm::ConnectionForm()
    : QGroupBox(QStringLiteral("Connection")), mHost(new QLineEdit(this)),
      mPort(new QSpinBox(this)), mUser(new QLineEdit(this)), mPassword(new QLineEdit(this)),
      mKeyFile(new FileField(QStringLiteral("Key file"), QStringLiteral("Those in ~/.ssh"))),
      mButton(new QPushButton(this)) {
    mHost->setPlaceholderText(QStringLiteral("Name or address"));
    mPort->setRange(1, std::numeric_limits<std::uint16_t>::max());
    mPort->setValue(22);
    mPort->setButtonSymbols(QAbstractSpinBox::NoButtons);
    mPassword->setEchoMode(QLineEdit::Password);
    mPassword->setPlaceholderText(QStringLiteral("None"));

    auto *const grid = new QGridLayout(this);
    grid->addWidget(labelFor(mHost, QStringLiteral("&Host")), 0, 0);
    grid->addWidget(mHost, 0, 1);
    grid->addWidget(labelFor(mPort, QStringLiteral("&Port")), 0, 2);
    grid->addWidget(mPort, 0, 3);
    grid->addWidget(labelFor(mUser, QStringLiteral("&User")), 1, 0);
    grid->addWidget(mUser, 1, 1);
    grid->addWidget(labelFor(mPassword, QStringLiteral("Pass&word")), 1, 2);
    grid->addWidget(mPassword, 1, 3);
    grid->addWidget(labelFor(mKeyFile, QStringLiteral("&Key file")), 2, 0);
    grid->addWidget(mKeyFile, 2, 1, 1, 2);
    grid->addWidget(mButton, 2, 3);
    grid->setColumnStretch(1, 2);
    grid->setColumnStretch(3, 1);

    for (QLineEdit *const field : {mHost, mUser, mPassword}) {
        connect(field, &QLineEdit::returnPressed, this, &ConnectionForm::request);
        connect(field, &QLineEdit::textChanged, this, &ConnectionForm::updateButton);
    }
    connect(mKeyFile, &FileField::returnPressed, this, &ConnectionForm::request);
    connect(mButton, &QPushButton::clicked, this, &ConnectionForm::request);
    mSettling.setSingleShot(true);
    connect(&mSettling, &QTimer::timeout, this, &ConnectionForm::updateButton);
    updateButton();
}

ConnectionForm::~ConnectionForm() {
    SSHPlatform::wipe(*mPassword);
}

ConnectionParameters ConnectionForm::parameters() const {
    return {.host = mHost->text().trimmed().toStdString(),
            .port = static_cast<std::uint16_t>(mPort->value()),
            .user = mUser->text().toStdString(),
            .password = mPassword->text().isEmpty() ? SSHPlatform::Secret::none()
                                                    : SSHPlatform::secretOf(*mPassword),
            .keyFile = textOrNone(mKeyFile->path())};
}

void ConnectionForm::fill(const QString &host, int port, const QString &user,
                          const QString &keyFile) {
    mHost->setText(host);
    mPort->setValue(port);
    mUser->setText(user);
    mKeyFile->setPath(keyFile);
}

void ConnectionForm::follow(const Connection &connection) {
    mIsIdle = connection.isIdle();
    if (connection.isClosing() && !mIsClosing)
        mSettling.start(QApplication::doubleClickInterval());
    mIsClosing = connection.isClosing();
    mIsCalling = connection.isCalling();
    for (QWidget *const field :
         std::initializer_list<QWidget *>{mHost, mPort, mUser, mPassword, mKeyFile})
        field->setEnabled(mIsIdle);
    updateButton();
}

void ConnectionForm::request() {
    if (!mButton->isEnabled())
        return;
    if (mIsIdle)
        Q_EMIT connectRequested();
    else
        Q_EMIT disconnectRequested();
}

void ConnectionForm::updateButton() {
    const bool isComplete = !mHost->text().trimmed().isEmpty() && !mUser->text().isEmpty();
    if (mIsIdle)
        mButton->setText(QStringLiteral("&Connect"));
    else if (mIsCalling)
        mButton->setText(QStringLiteral("&Cancel"));
    else
        mButton->setText(QStringLiteral("&Disconnect"));
    mButton->setEnabled(!mIsClosing && !mSettling.isActive() && (!mIsIdle || isComplete));
}
