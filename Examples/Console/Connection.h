// One session at a time, as an object of the main thread. The blocking calls go to worker threads,
// the session's notices come back as signals.
#pragma once

#include "Examples/Console/Outcome.h"
#include "Examples/Console/OutputQueue.h"

#include <SSHSession/SSHSession.h>
#include <SSHSession/Secret.h>

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QThreadPool>
#include <QTimer>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

struct ConnectionParameters {
    std::string host;
    std::uint16_t port = 22;
    std::string user;
    SSHPlatform::Secret password = SSHPlatform::Secret::none();
    std::optional<std::string> keyFile;
};

struct CommandRequest {
    std::string command;
    SSHPlatform::Secret adminPassword = SSHPlatform::Secret::none();
    QString stdinFile; // empty: none
};

class Connection final : public QObject {
    Q_OBJECT

  public:
    Connection(SSHSessionOptions options, QObject *parent);
    ~Connection() override;
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    // One after another: `open` while idle, `run` while ready. `close` at any time; it cancels what
    // is going on.
    void open(const ConnectionParameters &parameters);
    void run(const CommandRequest &request);
    void close();

    bool isConnected() const { return mIsConnected; }
    bool isCalling() const { return mIsCalling; }
    bool isClosing() const { return mIsClosing; }
    bool isIdle() const { return !mIsConnected && !mIsCalling && !mIsClosing; }

    // For the user: what is going on; and in `status` also its stage, for how long already, how
    // much has come, and what it waits for, where that takes time.
    QString activity() const;
    QString status() const;

  Q_SIGNALS:
    void changed();
    void greeted(const QString &banner); // the server's words, visible as they are
    void failed(const Problem &problem);
    void wrote(SSHCommandStream stream, const std::string &bytes); // while the command runs
    void ran(const QString &summary); // after all that it wrote; also when it was not to its end

  private:
    class Watcher;

    QString progress() const;
    void beginCall(const QString &activity);
    void endCall(const std::optional<Problem> &problem);
    void collectOutputs();
    void settle();
    void stop();
    void reportLater(std::function<void()> report);

    const SSHSessionOptions mOptions;
    std::shared_ptr<Watcher> mWatcher;
    std::shared_ptr<SSHSession> mSession;
    QString mName;     // user@host:port
    QString mActivity; // of the call that is under way
    QString mStage;    // of connecting
    QElapsedTimer mSince;
    std::shared_ptr<OutputQueue> mOutputs; // of the last command
    QTimer mCollecting;
    bool mIsConnected = false;
    bool mIsCalling = false;
    std::atomic<bool> mIsClosing = false; // read by what is about to begin
    // One call after another, so that the window never waits. Last, since it waits in the end for
    // the one that is under way, which reports to all above.
    QThreadPool mCalls;
};
