#include "Examples/Console/ConnectionForm.h"

#include "Examples/Console/Widgets.h"

#include <SSHSession/QtSecret.h>

#include <QApplication>
#include <QComboBox>
#include <QGridLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

#include <algorithm>
#include <limits>

namespace {

constexpr int usualPort = 22;

std::optional<std::string> textOrNone(const QString &text) {
    return text.isEmpty() ? std::nullopt : std::optional(text.toStdString());
}

QString usualName(const SavedConnection &connection) {
    const QString name = connection.user + QLatin1Char('@') + connection.host;
    return connection.port == usualPort ? name : name + QStringLiteral(":%1").arg(connection.port);
}

} // namespace

ConnectionForm::ConnectionForm(const QString &settingsFile)
    : QGroupBox(QStringLiteral("Connection")), mConnections(settingsFile),
      mSaved(entryList(QStringLiteral("Saved connection"),
                       QStringLiteral("Name to save these fields under"))),
      mSave(new QPushButton(QStringLiteral("&Save"))),
      mRemove(new QPushButton(QStringLiteral("Re&move"))), mHost(new QLineEdit),
      mPort(new QSpinBox), mUser(new QLineEdit), mPassword(new QLineEdit), mKeyFile(new QLineEdit),
      mChoose(chooserFor(mKeyFile, QStringLiteral("key file"))), mButton(new QPushButton) {
    mHost->setPlaceholderText(QStringLiteral("Name or address"));
    mPort->setRange(1, std::numeric_limits<std::uint16_t>::max());
    mPort->setValue(usualPort);
    mPort->setButtonSymbols(QAbstractSpinBox::NoButtons);
    mPassword->setEchoMode(QLineEdit::Password);
    mPassword->setPlaceholderText(QStringLiteral("None; never saved"));
    mKeyFile->setPlaceholderText(QStringLiteral("Those in ~/.ssh"));
    mKeyFile->setClearButtonEnabled(true);
    mSettling.setSingleShot(true);
    layOut();
    wire();
    listSaved();
    choose(0);
}

ConnectionForm::~ConnectionForm() {
    SSHPlatform::wipe(*mPassword);
}

void ConnectionForm::layOut() {
    auto *const grid = new QGridLayout(this);
    grid->addWidget(labelFor(mSaved, QStringLiteral("Sa&ved")), 0, 0);
    grid->addWidget(mSaved, 0, 1);
    grid->addWidget(mSave, 0, 2);
    grid->addWidget(mRemove, 0, 3);
    grid->addWidget(labelFor(mHost, QStringLiteral("&Host")), 1, 0);
    grid->addWidget(mHost, 1, 1);
    grid->addWidget(labelFor(mPort, QStringLiteral("&Port")), 1, 2);
    grid->addWidget(mPort, 1, 3);
    grid->addWidget(labelFor(mUser, QStringLiteral("&User")), 2, 0);
    grid->addWidget(mUser, 2, 1);
    grid->addWidget(labelFor(mPassword, QStringLiteral("Pass&word")), 2, 2);
    grid->addWidget(mPassword, 2, 3);
    grid->addWidget(labelFor(mKeyFile, QStringLiteral("&Key file")), 3, 0);
    grid->addWidget(mKeyFile, 3, 1);
    grid->addWidget(mChoose, 3, 2);
    grid->addWidget(mButton, 3, 3);
    grid->setColumnStretch(1, 2);
    grid->setColumnStretch(3, 1);
}

void ConnectionForm::wire() {
    for (const QLineEdit *const field : {mHost, mUser, mPassword, mKeyFile}) {
        connect(field, &QLineEdit::returnPressed, this, &ConnectionForm::request);
        connect(field, &QLineEdit::textChanged, this, &ConnectionForm::updateButtons);
    }
    connect(mButton, &QPushButton::clicked, this, &ConnectionForm::request);
    connect(mSaved, &QComboBox::activated, this, &ConnectionForm::choose);
    connect(mSaved, &QComboBox::editTextChanged, this, &ConnectionForm::updateButtons);
    connect(mSave, &QPushButton::clicked, this, &ConnectionForm::save);
    connect(mRemove, &QPushButton::clicked, this, &ConnectionForm::remove);
    connect(&mSettling, &QTimer::timeout, this, &ConnectionForm::updateButtons);
}

ConnectionParameters ConnectionForm::parameters() const {
    return {.host = mHost->text().trimmed().toStdString(),
            .port = static_cast<std::uint16_t>(mPort->value()),
            .user = mUser->text().toStdString(),
            .password = mPassword->text().isEmpty() ? SSHPlatform::Secret::none()
                                                    : SSHPlatform::secretOf(*mPassword),
            .keyFile = textOrNone(mKeyFile->text())};
}

void ConnectionForm::fill(const SavedConnection &connection) {
    SSHPlatform::wipe(*mPassword);
    mSaved->setEditText(connection.name);
    mHost->setText(connection.host);
    mPort->setValue(connection.port);
    mUser->setText(connection.user);
    mKeyFile->setText(connection.keyFile);
}

// The name stays as it stands.
void ConnectionForm::listSaved() {
    const QString name = mSaved->currentText();
    mSaved->clear();
    for (const SavedConnection &connection : mConnections.all())
        mSaved->addItem(connection.name);
    mSaved->setCurrentIndex(mSaved->findText(name));
    mSaved->setEditText(name);
    updateButtons();
}

// By its name: another window may have changed the order in the file.
void ConnectionForm::choose(int index) {
    const auto connections = mConnections.all();
    const auto chosen =
        std::find_if(connections.begin(), connections.end(), [&](const SavedConnection &one) {
            return one.name == mSaved->itemText(index);
        });
    if (chosen != connections.end())
        fill(*chosen);
}

void ConnectionForm::save() {
    SavedConnection connection = entered();
    if (connection.name.isEmpty())
        connection.name = usualName(connection);
    report(mConnections.put(connection));
    mSaved->setEditText(connection.name);
    listSaved();
}

// The fields stay as they are, so that saving brings it back.
void ConnectionForm::remove() {
    report(mConnections.remove(entered().name));
    mSaved->setFocus(); // the button is about to be disabled
    listSaved();
}

void ConnectionForm::report(bool isWritten) {
    if (!isWritten)
        Q_EMIT failed({.description = QStringLiteral("The saved connections cannot be written."),
                       .suggestion = QStringLiteral("What to do: look at the rights of the file "
                                                    "and its directory."),
                       .reason = mConnections.file(),
                       .origin = {}});
}

SavedConnection ConnectionForm::entered() const {
    return {.name = mSaved->currentText().trimmed(),
            .host = mHost->text().trimmed(),
            .port = mPort->value(),
            .user = mUser->text(),
            .keyFile = mKeyFile->text()};
}

void ConnectionForm::takeFocus() {
    mHost->setFocus();
}

void ConnectionForm::follow(const Connection &connection) {
    mIsIdle = connection.isIdle();
    if (connection.isClosing() && !mIsClosing)
        mSettling.start(QApplication::doubleClickInterval());
    mIsClosing = connection.isClosing();
    mIsCalling = connection.isCalling();
    for (QWidget *const field : std::initializer_list<QWidget *>{mSaved, mHost, mPort, mUser,
                                                                 mPassword, mKeyFile, mChoose})
        field->setEnabled(mIsIdle);
    updateButtons();
}

void ConnectionForm::request() {
    if (!mButton->isEnabled())
        return;
    if (!mIsIdle) {
        Q_EMIT disconnectRequested();
        return;
    }
    mButton->setFocus(); // the fields are about to be disabled, and this one says "Cancel"
    if (const SavedConnection used = entered(); mConnections.all().contains(used)) {
        report(mConnections.put(used));
        listSaved();
    }
    Q_EMIT connectRequested();
}

void ConnectionForm::updateButtons() {
    const bool isComplete = !mHost->text().trimmed().isEmpty() && !mUser->text().isEmpty();
    if (mIsIdle)
        mButton->setText(QStringLiteral("&Connect"));
    else if (mIsCalling)
        mButton->setText(QStringLiteral("&Cancel"));
    else
        mButton->setText(QStringLiteral("&Disconnect"));
    mButton->setEnabled(!mIsClosing && !mSettling.isActive() && (!mIsIdle || isComplete));
    mSave->setEnabled(isComplete);
    mRemove->setEnabled(mIsIdle && mSaved->findText(mSaved->currentText().trimmed()) >= 0);
}
