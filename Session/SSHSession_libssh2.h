// The engine behind every session: an SSHSession that speaks SSH through libssh2.
//
// Private to the library. Its operations are public members so that they can be called one by one;
// each lives in the file named beside it, and the order below is the order in which `start` and
// `execute` call them. They return false on failure and fill `*error` when `error` is not null.
//
// What a connection consists of belongs to a Connection. `start` makes one, and each stage works on
// the one that it is given. The engine points to the connection that it holds: a stage whose
// connection is another one by now, or none, has been torn down and fails, whatever it found.
//
// All library calls on a connection's handles run on the session queue, entered synchronously from
// the caller's thread; only the keepalive and the watch are queued asynchronously. Others run while
// the caller waits: the names of the library's algorithms are fetched, and the server's questions
// put to the user, on the caller's thread; an accepted host key is added and written on the main
// thread.
#pragma once

#include <SSHSession/Mutex.h>
#include <SSHSession/SSHSession.h>

#include "Platform/SerialQueue.h"

#include <libssh2.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace SSHEngine {
class Connection;
class InputQueue;
class Notes;
using ConnectionRef = std::shared_ptr<Connection>;
} // namespace SSHEngine

// What assertions name as their source file.
inline constexpr const char *engineSourceName = "SSHSession_libssh2";

class SSHSession_libssh2 : public SSHSession {
  public:
    using Connection = SSHEngine::Connection;
    using ConnectionRef = SSHEngine::ConnectionRef;

    SSHSession_libssh2(std::optional<std::string> host, std::uint16_t port,
                       std::optional<std::string> user, SSHPlatform::Secret password,
                       std::optional<std::string> keyFilePath,
                       const SSHSessionOptions &options = {}) noexcept;

    // Waits for the session queue to drain; does not disconnect.
    ~SSHSession_libssh2() override;

    // --- Session/SSHSession_libssh2.cpp: the life of a connection
    bool start(SSHErrorRef *error) noexcept override;
    void stop() noexcept override;
    void cancel() noexcept override;
    bool execute(const std::shared_ptr<SSHCommand> &command, SSHErrorRef *error) noexcept override;
    bool isConnected() const noexcept override { return mIsConnected; }
    SSHErrorRef lastError() const noexcept override { return facts().error; }
    SSHFacts facts() const noexcept override;
    SSHFacts examinedFacts() const noexcept override;

    // --- The stages of `start`, in their order, on its caller's thread
    // Session/TCPConnection.cpp
    bool _createSocket(Connection &connection, SSHErrorRef *error);
    // Session/Handshake.cpp
    bool _startSession(Connection &connection, SSHErrorRef *error);
    // Identity/HostKeyVerification.cpp
    bool _validatedHostFingerprint(Connection &connection, SSHErrorRef *error);
    // Auth/Agent.cpp
    bool _authenticateWithAgent(Connection &connection, SSHErrorRef *error);
    // Auth/Manual.cpp, which calls the three below
    bool _authenticateManually(Connection &connection, SSHErrorRef *error);
    // Auth/PublicKey.cpp or Identities.cpp, Auth/Password.cpp, Auth/KeyboardInteractive.cpp
    bool _authenticateWithPublicKey(Connection &connection, SSHErrorRef *error);
    bool _authenticateWithPassword(Connection &connection, SSHErrorRef *error);
    bool _authenticateWithKeyboard(Connection &connection, SSHErrorRef *error);

    // Session/SSHSession_libssh2.cpp: hands the observers what the server has shown meanwhile, and
    // what has been tried
    void _tellNews(Connection &connection);

    // --- While connected, on the main thread
    // Sends a keepalive, every 30 s; or, of a session that watches its connection, lets Watch
    // listen where there is something to do, every 5 s.
    void keepAlive();
    void attend();
    std::chrono::milliseconds keepAliveInterval = std::chrono::seconds(30);
    std::chrono::milliseconds attendInterval = std::chrono::seconds(5);

    // Every question to the user counts as refused, so that nothing is recorded either, and the
    // password is sent once at most. For examinations; set before the first connection.
    bool asksNobody = false;

    // --- One command. Session queue only.
    // Commands/Execution.cpp
    bool _execute(Connection &connection, const std::shared_ptr<SSHCommand> &command,
                  SSHErrorRef *error);
    // Commands/ChannelIO.cpp
    static bool _readFromChannel(Connection &connection, LIBSSH2_CHANNEL *channel,
                                 SSHPlatform::ByteBuffer &data, bool isStderr, bool *keepReading,
                                 SSHErrorRef *error);
    static bool _writeToChannel(Connection &connection, LIBSSH2_CHANNEL *channel,
                                SSHEngine::InputQueue &input, bool *keepWriting,
                                SSHErrorRef *error);

    // --- The one teardown, from any state. Session queue only. Does nothing when the engine holds
    // another connection than `ended` by now: that one is not for its caller to end.
    void _cleanup(ConnectionRef ended);

    // --- Session/ErrorReporting.cpp
    // A null description or reason is left out, and all that would follow it.
    static SSHErrorRef _errorWithDescription(const std::optional<std::string> &description,
                                             const std::optional<std::string> &reason,
                                             std::int32_t code,
                                             SSHErrorCause cause = SSHErrorCause::Unknown);
    // For a failed library call; quotes the last message of `session`, which may be null.
    static SSHErrorRef _errorFromFunction(LIBSSH2_SESSION *session, const std::string &function,
                                          std::int32_t code,
                                          SSHErrorCause cause = SSHErrorCause::Unknown);
    static std::string _stringForErrorCode(std::int32_t code);

    // --- For the stages
    using SSHSession::didDisconnect;
    // Runs `work` on the session queue with the connection's live handle. Fails with an error of
    // its own when the connection has been torn down.
    bool onSessionQueue(const Connection &connection, SSHErrorRef *error,
                        const std::function<bool(LIBSSH2_SESSION *)> &work);
    // Whether the connection is the one that the engine holds, and not shut down.
    bool holds(const Connection &connection) const noexcept;

  protected:
    // The connection that the engine holds; null when idle.
    ConnectionRef connection() const noexcept;
    // Makes one for a `start`; null while another `start` is under way.
    ConnectionRef beginConnection();

    SSHPlatform::SerialQueue mSessionQueue;
    mutable SSHPlatform::Mutex mMutex;
    ConnectionRef mConnection SSHSESSION_GUARDED_BY(mMutex);
    std::shared_ptr<SSHPlatform::RepeatingTimer> mKeepAliveTimer SSHSESSION_GUARDED_BY(mMutex);
    std::atomic<bool> mIsConnected = false;
    // Of the last connection that was begun, whether the engine still holds it or not.
    std::shared_ptr<SSHEngine::Notes> mNotes SSHSESSION_GUARDED_BY(mMutex);

  private:
    bool makeConnected(const ConnectionRef &connection, SSHErrorRef *error);
    bool runStages(Connection &connection, SSHErrorRef *error);
    bool becomeConnected(const ConnectionRef &connection);
    // Where there is none: those of the last one, or the first ones.
    std::shared_ptr<SSHEngine::Notes> notesOf(const ConnectionRef &connection);
    void tellAttempts(Connection &connection);
    void listen();
    ConnectionRef shutDownUnlessUsed();
    // Counts a command on the connection that the engine holds, and no more on `before`. Either may
    // be null.
    ConnectionRef countCommand(const ConnectionRef &before);
    void endCommand(const ConnectionRef &used);
};
