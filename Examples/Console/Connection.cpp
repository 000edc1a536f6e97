#include "Examples/Console/Connection.h"

#include "Examples/Console/VisibleText.h"

#include <SSHSession/SSHWaiting.h>

#include <QFile>

#include <chrono>
#include <utility>

namespace {

QString nameOf(SSHSessionStage stage) {
    switch (stage) {
    case SSHSessionStage::Connect:
        return QStringLiteral("looking up the host and connecting");
    case SSHSessionStage::Handshake:
        return QStringLiteral("agreeing on keys");
    case SSHSessionStage::HostKey:
        return QStringLiteral("checking the server's key");
    case SSHSessionStage::Agent:
        return QStringLiteral("asking the SSH agent");
    case SSHSessionStage::Authenticate:
        return QStringLiteral("authenticating");
    case SSHSessionStage::Execute:
        break;
    }
    return {};
}

// Neither so often that showing takes all the time, nor so seldom that a fast command has to wait.
constexpr std::chrono::milliseconds collectingInterval(20);

constexpr std::chrono::seconds longEnoughToWonder(5);

double secondsOf(const QElapsedTimer &timer) {
    return static_cast<double>(timer.elapsed()) / 1000;
}

// Read on the worker: the file may be large, or lie on a slow disk.
std::optional<Problem> readInput(const QString &path, SSHCommand &command) {
    if (path.isEmpty())
        return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return Problem{.description = QStringLiteral("The file for standard input cannot be read."),
                       .suggestion = {},
                       .reason = path + QStringLiteral("\n") + file.errorString(),
                       .origin = {}};
    QByteArray bytes = file.readAll();
    command.setStdinData({bytes.constData(), static_cast<std::size_t>(bytes.size())});
    SSHPlatform::wipe(bytes.data(), static_cast<std::size_t>(bytes.size()));
    return std::nullopt;
}

CommandOutcome execute(SSHSession &session, const CommandRequest &request, SSHOutputSink sink,
                       const QElapsedTimer &since) {
    const auto command = std::make_shared<SSHCommand>();
    command->setCommand(request.command);
    command->setAdminPassword(request.adminPassword.shared());
    command->setOutputSink(std::move(sink));
    if (const auto problem = readInput(request.stdinFile, *command))
        return {.summary = {}, .problem = problem};
    const bool hasSucceeded = session.execute(command, nullptr);
    const double seconds = secondsOf(since);
    return hasSucceeded ? outcomeOf(*command, session.facts(), seconds)
                        : failureOf(session.examinedFacts(), seconds);
}

} // namespace

// Notices come on whatever thread makes the change; each is carried to the main thread.
class Connection::Watcher final : public SSHSessionDelegate, public SSHSessionObserver {
  public:
    explicit Watcher(Connection *connection) : mConnection(connection) {}

    void sshSessionDisconnected(SSHSession & /*session*/,
                                const SSHErrorRef &error) noexcept override {
        mConnection->reportLater([connection = mConnection, error] {
            Q_EMIT connection->failed(serverLeft(error));
            connection->close();
        });
    }

    void didChangeValueForKey(SSHSession &session, const std::string & /*key*/) noexcept override {
        mConnection->reportLater([connection = mConnection, isConnected = session.isConnected()] {
            connection->mIsConnected = isConnected;
            Q_EMIT connection->changed();
        });
    }

    void didReceiveBanner(SSHSession & /*session*/, const std::string &banner) noexcept override {
        mConnection->reportLater([connection = mConnection, text = visibleText(banner)] {
            Q_EMIT connection->greeted(text);
        });
    }

    void willBeginStage(SSHSession &session, SSHSessionStage stage) noexcept override {
        if (mConnection->mIsClosing)
            session.cancel(); // what was called before, and begins only now
        if (stage == SSHSessionStage::Execute)
            return;
        mConnection->reportLater([connection = mConnection, stage] {
            connection->mStage = QStringLiteral(": ") + nameOf(stage);
            Q_EMIT connection->changed();
        });
    }

  private:
    Connection *const mConnection;
};

Connection::Connection(SSHSessionOptions options, QObject *parent)
    : QObject(parent), mOptions(std::move(options)), mWatcher(std::make_shared<Watcher>(this)) {
    mCalls.setMaxThreadCount(1);
    mCollecting.setSingleShot(true);
    mCollecting.setInterval(collectingInterval);
    connect(&mCollecting, &QTimer::timeout, this, &Connection::collectOutputs);
}

// A session that is still connected outlives this object.
Connection::~Connection() {
    if (!mSession)
        return;
    mSession->setDelegate(nullptr);
    mIsClosing = true;
    mSession->cancel();
}

void Connection::open(const ConnectionParameters &parameters) {
    mName = visibleText(parameters.user + '@' + parameters.host + ':' +
                        std::to_string(parameters.port));
    mSession = SSHSession::sessionWithHost(parameters.host, parameters.port, parameters.user,
                                           parameters.password, parameters.keyFile, mOptions);
    mSession->setDelegate(mWatcher.get());
    mSession->addObserver(mWatcher);
    beginCall(QStringLiteral("Connecting to ") + mName);
    mCalls.start([this, session = mSession] {
        std::optional<Problem> problem;
        if (!session->start(nullptr))
            problem = problemOf(session->examinedFacts());
        reportLater([this, problem] { endCall(problem); });
    });
}

void Connection::run(const CommandRequest &request) {
    beginCall(QStringLiteral("Running on ") + mName);
    // By the clock: when collecting at once, a fast command would keep the window from all else.
    mOutputs =
        std::make_shared<OutputQueue>([this] { reportLater([this] { mCollecting.start(); }); });
    mCalls.start([this, session = mSession, request, outputs = mOutputs, since = mSince] {
        const auto sink = [outputs](SSHCommandStream stream, std::string_view piece) {
            return outputs->take(stream, piece);
        };
        const CommandOutcome outcome = execute(*session, request, sink, since);
        reportLater([this, outcome] {
            collectOutputs();
            Q_EMIT ran(outcome.summary);
            endCall(outcome.problem);
        });
    });
}

void Connection::collectOutputs() {
    const OutputQueue::Pieces pieces = mOutputs->collect();
    for (const auto stream : {SSHCommandStream::Output, SSHCommandStream::ErrorOutput})
        if (const std::string &bytes = pieces.at(static_cast<std::size_t>(stream)); !bytes.empty())
            Q_EMIT wrote(stream, bytes);
}

void Connection::close() {
    if (mIsClosing || isIdle())
        return;
    mIsClosing = true;
    if (mIsCalling)
        mSession->cancel();
    else
        stop();
    Q_EMIT changed();
}

QString Connection::activity() const {
    if (mIsClosing)
        return QStringLiteral("Disconnecting");
    if (mIsCalling)
        return mActivity;
    return mIsConnected ? QStringLiteral("Connected to ") + mName : QStringLiteral("Not connected");
}

QString Connection::status() const {
    if (mIsClosing || !mIsCalling)
        return activity();
    return mActivity + mStage + QStringLiteral(": ") + elapsedText(secondsOf(mSince)) + progress();
}

// What it waits for is said once it has taken long enough to make somebody wonder.
QString Connection::progress() const {
    const SSHFacts facts = mSession->facts();
    const SSHCommandFacts &command = facts.command;
    QString text;
    if (command.isRunning && command.inputSize > 0)
        text += QStringLiteral(", %1 of %2 sent")
                    .arg(sizeText(command.inputBytes), sizeText(command.inputSize));
    if (command.isRunning && command.outputBytes > 0)
        text += QStringLiteral(", %1 received").arg(sizeText(command.outputBytes));
    const std::string waiting = SSHWaitingText(facts);
    if (!waiting.empty() &&
        std::chrono::steady_clock::now() - SSHWaitingSince(facts) >= longEnoughToWonder)
        text += QStringLiteral(". Waiting ") + visibleText(waiting);
    return text;
}

void Connection::beginCall(const QString &activity) {
    mActivity = activity;
    mStage.clear();
    mIsCalling = true;
    mSince.start();
    Q_EMIT changed();
}

// What a call says that was cut off by `close` is no news.
void Connection::endCall(const std::optional<Problem> &problem) {
    mIsCalling = false;
    if (problem && !mIsClosing)
        Q_EMIT failed(*problem);
    settle();
}

// What was cancelled too late has left the session connected.
void Connection::settle() {
    if (mIsClosing && !mIsCalling) {
        if (mSession->isConnected())
            stop();
        else
            mIsClosing = false;
    }
    Q_EMIT changed();
}

void Connection::stop() {
    mIsCalling = true;
    mCalls.start([this, session = mSession] {
        session->stop();
        reportLater([this] { endCall(std::nullopt); });
    });
}

void Connection::reportLater(std::function<void()> report) {
    QMetaObject::invokeMethod(this, std::move(report), Qt::QueuedConnection);
}
