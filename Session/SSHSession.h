// SPDX-License-Identifier: BSD-3-Clause

// One authenticated SSH connection that runs remote commands.
//
// A host application makes a session with `sessionWithHost`, calls `start`, then `execute` any
// number of times, and finally `stop`:
//
//   auto session = SSHSession::sessionWithHost("db.example.com", 22, "ada", "secret", {});
//   auto command = std::make_shared<SSHCommand>();
//   command->setCommand("uname -a");
//
//   SSHErrorRef error;
//   if (session->start(&error) && session->execute(command, &error))
//     show(command->stdoutData()->view());
//   else
//     complain(error); // null when the user declined the server's host key; see lastError
//   session->stop();
//
// Threads. `start`, `stop` and `execute` block their caller and may be called on any thread, the
// main thread included, but never from inside a delegate's or observer's notice that says it comes
// from the session queue. Prompts (an unknown host key, a key file's pass phrase) appear on the
// main thread: a host that calls `start` on another thread must leave the main thread's event loop
// running; keepalives, every 30 s, need it too. One session does one thing at a time; different
// sessions are independent.
//
// Ownership. Sessions are shared. While a session is connected, its keepalive timer keeps it alive:
// call `stop` before you let go of it. The delegate is not owned and must outlive the session's
// connection, or be cleared before.
//
// Diagnosis. SSHError::cause is what failed, to branch on. SSHFindings(session->examinedFacts())
// says in sentences what is wrong and what to do, SSHWaitingText(session->facts()) what is waited
// for at this moment, and SSHDoctor examines step by step what keeps a session from working.
//
// Errors. Operations answer true or false and, when false, fill the error out-parameter if there is
// one. Nothing throws. Any failed command disconnects; call `start` again before the next one. A
// `start` while another one is under way fails, and leaves that one alone. Calling `start` on a
// connected session is a programming error: it ends the process once the second connection stands.
//
// Secrets. The session keeps its password as long as it lives. A password, a command, its input and
// an administrator's password are sent only to a server whose host key has been accepted for the
// very connection that they go through.
//
// Their memory is overwritten when it is given back: the session's password with the session, a
// pass phrase after the key has been tried, an administrator's password and a command's input with
// the last reference to them (if SSHCommand made the copy), and all of libssh2's memory, whose
// compression window holds what was sent last, with the connection. A text that the host passes as
// a std::string stays the host's to wipe; SSHPlatform::Secret is a text that needs no such care.
// Memory is not locked: it can be swapped out. Docs/limits.md lists what cannot be reached.
#pragma once

#include <SSHSession/Mutex.h>
#include <SSHSession/Platform.h>
#include <SSHSession/SSHAttempt.h>
#include <SSHSession/SSHCommand.h>
#include <SSHSession/SSHError.h>
#include <SSHSession/SSHEscapeString.h>
#include <SSHSession/SSHFacts.h>
#include <SSHSession/SSHSessionExport.h>
#include <SSHSession/SSHSessionOptions.h>
#include <SSHSession/SSHSessionStage.h>
#include <SSHSession/Secret.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

class SSHSession;

// Is told when the server ends a connection.
class SSHSESSION_EXPORT SSHSessionDelegate {
  public:
    SSHSessionDelegate() = default;
    SSHSessionDelegate(const SSHSessionDelegate &) = delete;
    SSHSessionDelegate &operator=(const SSHSessionDelegate &) = delete;
    virtual ~SSHSessionDelegate();

    // The server has ended the connection. `error` is null when it did so in good order (reason 11
    // of RFC 4253, section 11.1), else an error in the domain "libssh2" with the server's reason,
    // and its message and language where it sent them. `isConnected` stays true until the next
    // failed command or `stop`.
    //
    // A session that watches its connection (SSHSessionOptions::watchesConnection) tells any end
    // that it meets while it is idle, once, and becomes unconnected right after. Where the server
    // said nothing, `error` has the library's own domain and a reason. A `start` by another thread,
    // begun at this notice, waits for that and connects again.
    //
    // Called on the session queue, in the middle of the operation that met the server's message: do
    // not call `start`, `stop` or `execute` from here, and do not wait for a thread that does, or
    // that calls `setDelegate`.
    // Not called for a `stop`, nor for a failure of `start` or `execute` that the server did not
    // announce.
    virtual void sshSessionDisconnected(SSHSession &session, const SSHErrorRef &error) noexcept = 0;
};

// Receives change notices. Every operation does nothing unless it is overridden. Notices come on
// the thread that makes the change: for a stage of `start` and for `isConnected` becoming true, the
// caller of `start`; for `isConnected` becoming false, the session queue (see the warning there).
class SSHSESSION_EXPORT SSHSessionObserver {
  public:
    SSHSessionObserver() = default;
    SSHSessionObserver(const SSHSessionObserver &) = delete;
    SSHSessionObserver &operator=(const SSHSessionObserver &) = delete;
    virtual ~SSHSessionObserver();

    // The value of the property named `key` is about to change, or has changed. The only key is
    // "isConnected". Each end of a connection sends one pair, also when the value was false
    // already.
    virtual void willChangeValueForKey(SSHSession &session, const std::string &key) noexcept;
    virtual void didChangeValueForKey(SSHSession &session, const std::string &key) noexcept;

    // A stage begins, or has ended. Execute's notices come on the caller's thread, outside the
    // queue.
    virtual void willBeginStage(SSHSession &session, SSHSessionStage stage) noexcept;
    virtual void didEndStage(SSHSession &session, SSHSessionStage stage, bool succeeded) noexcept;

    // The server has a text for the user, at log-in (RFC 4252, section 5.4). UTF-8; it may hold
    // anything: show it with SSHPlatform::printableText, as the server's words. On the caller's
    // thread of `start`. Only for sessions whose options ask for it (tellsBanners).
    virtual void didReceiveBanner(SSHSession &session, const std::string &banner) noexcept;

    // An attempt to log in has ended, or was not made for the reason that it names. In the order in
    // which they were made, on the caller's thread of `start`; each before the user is asked for
    // what the next one needs.
    virtual void didTryMethod(SSHSession &session, const SSHAttempt &attempt) noexcept;
};

class SSHSESSION_EXPORT SSHSession : public std::enable_shared_from_this<SSHSession> {
  public:
    // Makes a session that is not connected yet; nothing goes over the network. `host` is a name or
    // an IPv4 address, and with the option triesEveryAddress also an IPv6 address, with its scope
    // behind a percent sign where it needs one. A null `password` or `keyFilePath` means there is
    // none; a leading "~" in the path stands for the home directory. All texts are UTF-8.
    static std::shared_ptr<SSHSession>
    sessionWithHost(std::optional<std::string> host, std::uint16_t port,
                    std::optional<std::string> user, std::optional<std::string> password,
                    std::optional<std::string> keyFilePath) noexcept;
    // The same, for a session that does otherwise than by default.
    static std::shared_ptr<SSHSession> sessionWithHost(std::optional<std::string> host,
                                                       std::uint16_t port,
                                                       std::optional<std::string> user,
                                                       std::optional<std::string> password,
                                                       std::optional<std::string> keyFilePath,
                                                       const SSHSessionOptions &options) noexcept;
    // The same, for a password that the caller keeps as a secret too.
    static std::shared_ptr<SSHSession>
    sessionWithHost(std::optional<std::string> host, std::uint16_t port,
                    std::optional<std::string> user, SSHPlatform::Secret password,
                    std::optional<std::string> keyFilePath,
                    const SSHSessionOptions &options = {}) noexcept;

    // An abstract session that only carries its parameters: `start`, `stop` and `execute` end the
    // process. Use `sessionWithHost`.
    SSHSession(std::optional<std::string> host, std::uint16_t port, std::optional<std::string> user,
               std::optional<std::string> password,
               std::optional<std::string> keyFilePath) noexcept;
    SSHSession(std::optional<std::string> host, std::uint16_t port, std::optional<std::string> user,
               SSHPlatform::Secret password, std::optional<std::string> keyFilePath,
               const SSHSessionOptions &options = {}) noexcept;
    SSHSession(const SSHSession &) = delete;
    SSHSession &operator=(const SSHSession &) = delete;
    virtual ~SSHSession();

    // Connects, checks the server's host key and authenticates. Answers whether the session is
    // connected now. Connecting takes up to 5 s after the name look-up; later stages wait as long
    // as the server and the user take, unless the options set other limits. When the user declines
    // a host key, the answer is false and `*error` is left as it was.
    virtual bool start(SSHErrorRef *error) noexcept;

    // Disconnects and releases everything the connection held. Any state, any number of times. A
    // `start` that is under way ends at once, wherever it waits, and fails; a question that it
    // shows is taken down, or waited for where its presenter cannot. A running command is waited
    // for.
    virtual void stop() noexcept;

    // Ends what the session is doing, without waiting for it. A `start` that is under way and every
    // `execute` that runs or waits for its turn answers false within moments, wherever it waits,
    // with an error that says so (code ECANCELED), and the session disconnects; a question that is
    // shown is taken down where its presenter can, and counts as refused. A session that is doing
    // nothing is left alone: an idle one stays connected, and a call that begins later is not
    // affected. A command that had just ended may answer true even so. Any thread, any notice, any
    // number of times; not a signal handler.
    //
    // `stop` is for a session that is no longer needed, and waits for a running command; `cancel`
    // is for a user who will not wait any longer. The command itself may go on at the server.
    virtual void cancel() noexcept;

    // Runs a command to its end and fills the record's outputs. Unless the options set one, there
    // is no time limit: a command runs as long as it takes, and its end is waited for also when
    // both outputs have ended before. Only a server that cannot be reached any more is given up,
    // two to three minutes after its last sign of life, where the system can be told when to ask
    // (TCP_KEEPIDLE in tcp(7)); a session that was idle finds out with its next command. One that
    // watches its connection asks by itself, and gives up a server that has left three keepalives
    // unanswered, also while it is idle (code ETIMEDOUT). Holds session and command meanwhile.
    // Fails at once when the session is not connected. True while SSHCommand::isClosedInOrder is
    // false means that the connection ended before the command did.
    //
    // With an `adminPassword`, a wrong password fails once sudo gives up after three attempts and
    // says so in English, and ten seconds without an answer from sudo fail as a time-out. Any other
    // last word of sudo's is waited on without end: to a user who is not in sudoers, after another
    // number of attempts, in another language. A user whose shell prints something on standard
    // output as it starts hides sudo's answer: every such command times out, and has run as root. A
    // time-out never says that the command did not run. With the option followsSudo each end of
    // sudo's is a failure at once, in its own words, and what a shell prints does not matter.
    virtual bool execute(const std::shared_ptr<SSHCommand> &command, SSHErrorRef *error) noexcept;

    // Whether `start` has succeeded and nothing has failed since. Observable under "isConnected".
    virtual bool isConnected() const noexcept;

    // The error of the last `start` or `execute`, whether or not the caller asked for it, and also
    // where a declined host key left the caller's as it was. Null when it succeeded, and before the
    // first one. Any thread.
    virtual SSHErrorRef lastError() const noexcept;

    // What has been seen since the last `start` began, also while it or a command is under way; and
    // the same with what can be looked at on this computer, for SSHFindings. The second reads files
    // and asks the agent for its list, which can take seconds; it never asks the user, connects to
    // the server or changes anything. Any thread.
    virtual SSHFacts facts() const noexcept;
    virtual SSHFacts examinedFacts() const noexcept;

    // Once `setDelegate` has returned, the delegate of before is not called any more: a notice that
    // it is given on another thread meanwhile is waited for. Any thread, also from inside a notice.
    SSHSessionDelegate *delegate() const noexcept;
    void setDelegate(SSHSessionDelegate *delegate) noexcept;

    // Observers are held weakly and told in the order in which they were added. Any thread. A
    // notice that has begun on another thread still reaches an observer after it was removed, which
    // therefore lives until then.
    void addObserver(const std::weak_ptr<SSHSessionObserver> &observer) noexcept;
    void removeObserver(const std::weak_ptr<SSHSessionObserver> &observer) noexcept;

    // The parameters as they were given, the key file's path with its "~" expanded. `uuid` is
    // always null.
    const std::optional<std::string> &uuid() const noexcept { return mUUID; }
    const std::optional<std::string> &host() const noexcept { return mHost; }
    const std::optional<std::string> &user() const noexcept { return mUser; }
    const std::optional<std::string> &password() const noexcept { return mPassword.text(); }
    const std::optional<std::string> &keyFilePath() const noexcept { return mKeyFilePath; }
    std::uint16_t port() const noexcept { return mPort; }
    const SSHSessionOptions &options() const noexcept { return mOptions; }

  protected:
    // Tells every observer; call with no lock held.
    void willChangeValueForKey(const std::string &key) noexcept;
    void didChangeValueForKey(const std::string &key) noexcept;
    void willBeginStage(SSHSessionStage stage) noexcept;
    void didEndStage(SSHSessionStage stage, bool succeeded) noexcept;
    void didReceiveBanner(const std::string &banner) noexcept;
    void didTryMethod(const SSHAttempt &attempt) noexcept;
    // Tells the delegate, if there is one.
    void didDisconnect(const SSHErrorRef &error) noexcept;

  private:
    std::vector<std::shared_ptr<SSHSessionObserver>> observers() const;

    mutable std::recursive_mutex mDelegateMutex; // held while the delegate is called
    SSHSessionDelegate *mDelegate = nullptr;     // guarded by it
    std::optional<std::string> mUUID;
    std::optional<std::string> mHost;
    std::optional<std::string> mUser;
    SSHPlatform::Secret mPassword;
    std::optional<std::string> mKeyFilePath;
    std::uint16_t mPort;
    SSHSessionOptions mOptions;

    mutable SSHPlatform::Mutex mObserversMutex;
    std::vector<std::weak_ptr<SSHSessionObserver>>
        mObservers SSHSESSION_GUARDED_BY(mObserversMutex);
};
