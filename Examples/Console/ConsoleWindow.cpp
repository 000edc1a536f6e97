#include "Examples/Console/ConsoleWindow.h"

#include "Examples/Console/CommandForm.h"
#include "Examples/Console/ConnectionForm.h"
#include "Examples/Console/LiteralText.h"
#include "Examples/Console/OutputPane.h"
#include "Examples/Console/ProblemPane.h"
#include "Examples/Console/StatusLine.h"

#include <QApplication>
#include <QCloseEvent>
#include <QLabel>
#include <QSplitter>
#include <QVBoxLayout>

#include <chrono>

namespace {

constexpr std::chrono::milliseconds clockInterval(100);
constexpr int mostBannerLines = 8;
constexpr qsizetype longestBanner = 16384; // characters; a server may send any number of texts

} // namespace

ConsoleWindow::ConsoleWindow(const SSHSessionOptions &options)
    : mConnectionForm(new ConnectionForm), mCommandForm(new CommandForm), mStatus(new StatusLine),
      mBanner(new LiteralText(QStringLiteral("The server's words"), this)),
      mProblem(new ProblemPane), mSummary(new QLabel),
      mOutput(new OutputPane(QStringLiteral("Output"))),
      mErrorOutput(new OutputPane(QStringLiteral("Error output"))) {
    setWindowTitle(QGuiApplication::applicationDisplayName());
    layOut();
    makeConnection(options);
    wire();
    follow();
}

void ConsoleWindow::layOut() {
    mSummary->setTextFormat(Qt::PlainText);
    mSummary->setTextInteractionFlags(Qt::TextSelectableByMouse);
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
    connect(&mClock, &QTimer::timeout, this, [this] { mStatus->follow(*mConnection); });
    connect(mConnectionForm, &ConnectionForm::connectRequested, this, [this] {
        mProblem->hide();
        mBanner->present({}, 0);
        mConnection->open(mConnectionForm->parameters());
    });
    connect(mConnectionForm, &ConnectionForm::disconnectRequested, this,
            [this] { mConnection->close(); });
    connect(mCommandForm, &CommandForm::runRequested, this, &ConsoleWindow::run);
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
    mStatus->follow(*mConnection);
    if (mConnection->isCalling() || mConnection->isClosing())
        mClock.start(clockInterval);
    else
        mClock.stop();
    if (mIsLeaving && mConnection->isIdle())
        QCoreApplication::quit();
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
    mSummary->setText(summary);
}

void ConsoleWindow::greet(const QString &banner) {
    QString text = mBanner->toPlainText();
    text += (text.isEmpty() ? QString() : QStringLiteral("\n")) + banner.trimmed();
    text.truncate(longestBanner);
    mBanner->present(text, mostBannerLines);
}

void ConsoleWindow::closeEvent(QCloseEvent *event) {
    if (mConnection->isIdle())
        return;
    event->ignore();
    mIsLeaving = true;
    mConnection->close();
}
