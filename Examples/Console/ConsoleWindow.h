// The example's window: where to connect, what to run, and what came of it.
#pragma once

#include "Examples/Console/Connection.h"

#include <QTimer>
#include <QWidget>

#include <functional>

class CommandForm;
class ConnectionForm;
class OutputPane;
class ProblemPane;
class LiteralText;
class Notice;

class ConsoleWindow final : public QWidget {
    Q_OBJECT

  public:
    // Connections are saved in `settingsFile`.
    explicit ConsoleWindow(const QString &settingsFile,
                           const SSHSessionOptions &options = SSHSessionOptions::recommended());

    ConnectionForm &connectionForm() { return *mConnectionForm; }
    CommandForm &commandForm() { return *mCommandForm; }

  protected:
    // Disconnects first, and closes when that is done.
    void closeEvent(QCloseEvent *event) override;

  private:
    void layOut();
    void wire();
    void makeConnection(const SSHSessionOptions &options);
    void follow();
    void showStatus();
    void run();
    void append(SSHCommandStream stream, const std::string &bytes);
    void finish(const QString &summary);
    void greet(const QString &banner);
    void addShortcut(const QKeySequence &keys, const std::function<void(OutputPane &)> &action);

    Connection *mConnection = nullptr;
    ConnectionForm *mConnectionForm;
    CommandForm *mCommandForm;
    Notice *mStatus;
    LiteralText *mBanner;
    ProblemPane *mProblem;
    Notice *mSummary;
    OutputPane *mOutput;
    OutputPane *mErrorOutput;
    QTimer mClock; // runs while there is a duration to show
    QString mSaid; // by the status, to screen readers
    bool mWasIdle = true;
    bool mIsLeaving = false;
};
