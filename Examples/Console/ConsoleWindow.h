// The example's window: where to connect, what to run, and what came of it.
#pragma once

#include "Examples/Console/Connection.h"

#include <QTimer>
#include <QWidget>

class CommandForm;
class ConnectionForm;
class OutputPane;
class ProblemPane;
class LiteralText;
class QLabel;
class StatusLine;

class ConsoleWindow final : public QWidget {
    Q_OBJECT

  public:
    explicit ConsoleWindow(const SSHSessionOptions &options = SSHSessionOptions::recommended());

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
    void run();
    void append(SSHCommandStream stream, const std::string &bytes);
    void finish(const QString &summary);
    void greet(const QString &banner);

    Connection *mConnection = nullptr;
    ConnectionForm *mConnectionForm;
    CommandForm *mCommandForm;
    StatusLine *mStatus;
    LiteralText *mBanner;
    ProblemPane *mProblem;
    QLabel *mSummary;
    OutputPane *mOutput;
    OutputPane *mErrorOutput;
    QTimer mClock; // runs while there is a duration to show
    bool mIsLeaving = false;
};
