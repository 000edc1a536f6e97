#include "Examples/Console/ConsoleWindow.h"

#include "Examples/Console/CommandForm.h"
#include "Examples/Console/ConnectionForm.h"
#include "Examples/Console/OutputPane.h"
#include "Examples/Console/ProblemPane.h"
#include "Examples/Console/Widgets.h"

#include <QApplication>
#include <QCloseEvent>
#include <QShortcut>
#include <QSplitter>
#include <QVBoxLayout>

#include <chrono>
#include <utility>

namespace {

constexpr std::chrono::milliseconds clockInterval(100);
constexpr int mostBannerLines = 8;
constexpr qsizetype longestBanner = 16384; // characters; a server may send any number of texts

} // namespace

ConsoleWindow::ConsoleWindow(const QString &settingsFile, const SSHSessionOptions &options)
    : mConnectionForm(new ConnectionForm(settingsFile)), mCommandForm(new CommandForm),
      mStatus(new Notice), mBanner(new LiteralText(QStringLiteral("The server's words"))),
      mProblem(new ProblemPane), mSummary(new Notice),
      mOutput(new OutputPane(QStringLiteral("&Output"))),
      mErrorOutput(new OutputPane(QStringLiteral("&Error output"))) {
    setWindowTitle(QGuiApplication::applicationDisplayName());
    layOut();
    makeConnection(options);
    wire();
    follow();
}

void ConsoleWindow::layOut() {
    mStatus->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    mBanner->hide();
    mProblem->hide();
    auto *const outputs = new QSplitter(Qt::Vertical);
    outputs->addWidget(mOutput);
    outputs->addWidget(mErrorOutput);
    outputs->setStretchFactor(0, 3);
    outputs->setStretchFactor(1, 1);
    outputs->setChildrenCollapsible(false);
    auto *const rows = new QVBoxLayout(this);
    rows->addWidget(mConnectionForm);
    rows->addWidget(mStatus);
    rows->addWidget(mBanner);
    rows->addWidget(mProblem);
    rows->addWidget(mCommandForm);
    rows->addWidget(outputs, 1);
    rows->addWidget(mSummary);
    resize(760, 720);
}

void ConsoleWindow::wire() {
    connect(&mClock, &QTimer::timeout, this, &ConsoleWindow::showStatus);
    connect(mConnectionForm, &ConnectionForm::connectRequested, this, [this] {
        mProblem->hide();
        mBanner->clear();
        mBanner->hide();
        mConnection->open(mConnectionForm->parameters());
    });
    connect(mConnectionForm, &ConnectionForm::disconnectRequested, this,
            [this] { mConnection->close(); });
    connect(mConnectionForm, &ConnectionForm::failed, mProblem, &ProblemPane::present);
    connect(mProblem, &ProblemPane::dismissed, this, [this] {
        if (mConnection->isConnected())
            mCommandForm->takeFocus();
        else
            mConnectionForm->takeFocus();
    });
    connect(mCommandForm, &CommandForm::runRequested, this, &ConsoleWindow::run);
    addShortcut(QKeySequence::Find, &OutputPane::openFind);
    addShortcut(QKeySequence::FindNext, &OutputPane::findNext);
    addShortcut(QKeySequence::FindPrevious, &OutputPane::findPrevious);
    addShortcut(QKeySequence::Save, &OutputPane::save);
    addShortcut(QKeySequence(QStringLiteral("Ctrl+Shift+C")), &OutputPane::copyAll);
}

// For the output with the focus, or else the first.
void ConsoleWindow::addShortcut(const QKeySequence &keys,
                                const std::function<void(OutputPane &)> &action) {
    connect(new QShortcut(keys, this), &QShortcut::activated, this, [this, action] {
        const bool isError = mErrorOutput->isAncestorOf(focusWidget());
        action(isError ? *mErrorOutput : *mOutput);
    });
}

void ConsoleWindow::makeConnection(const SSHSessionOptions &options) {
    mConnection = new Connection(options, this);
    connect(mConnection, &Connection::changed, this, &ConsoleWindow::follow);
    connect(mConnection, &Connection::greeted, this, &ConsoleWindow::greet);
    connect(mConnection, &Connection::failed, mProblem, &ProblemPane::present);
    connect(mConnection, &Connection::wrote, this, &ConsoleWindow::append);
    connect(mConnection, &Connection::ran, this, &ConsoleWindow::finish);
}

void ConsoleWindow::follow() {
    mConnectionForm->follow(*mConnection);
    mCommandForm->follow(*mConnection);
    showStatus();
    if (mConnection->isCalling() || mConnection->isClosing())
        mClock.start(clockInterval);
    else
        mClock.stop();
    // Unless there is a problem to read.
    const bool wasIdle = std::exchange(mWasIdle, mConnection->isIdle());
    if (mWasIdle && !wasIdle && !mProblem->isAncestorOf(focusWidget()))
        mConnectionForm->takeFocus();
    if (mIsLeaving && mConnection->isIdle())
        QCoreApplication::quit();
}

// Spoken is only what is new.
void ConsoleWindow::showStatus() {
    if (mSaid != mConnection->activity())
        mStatus->say(mSaid = mConnection->activity());
    mStatus->setText(mConnection->status());
}

void ConsoleWindow::run() {
    mProblem->hide();
    mSummary->clear();
    mOutput->clear();
    mErrorOutput->clear();
    mConnection->run(mCommandForm->request());
}

void ConsoleWindow::append(SSHCommandStream stream, const std::string &bytes) {
    (stream == SSHCommandStream::Output ? mOutput : mErrorOutput)->append(bytes);
}

void ConsoleWindow::finish(const QString &summary) {
    mOutput->finish();
    mErrorOutput->finish();
    mSummary->say(summary);
}

void ConsoleWindow::greet(const QString &banner) {
    QString text = mBanner->toPlainText();
    text += (text.isEmpty() ? QString() : QStringLiteral("\n")) + banner.trimmed();
    text.truncate(longestBanner);
    mBanner->setPlainText(text);
    mBanner->fit(mostBannerLines);
    mBanner->setVisible(!text.isEmpty());
}

void ConsoleWindow::closeEvent(QCloseEvent *event) {
    if (mConnection->isIdle())
        return;
    event->ignore();
    mIsLeaving = true;
    mConnection->close();
}
