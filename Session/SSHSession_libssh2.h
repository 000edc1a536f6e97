// The engine behind every session: an SSHSession that speaks SSH through libssh2.
//
// Private to the library. Its operations are public members so that they can be called one by one;
// each lives in the file named beside it, and the order below is the order in which `start` and
// `execute` call them.
//
// All library calls on a session's handles run on its session queue, entered synchronously from the
// caller's thread; only the keepalive is queued asynchronously. Operations return false on failure
// and fill `*error` when `error` is not null.
#pragma once

#include <SSHSession/SSHSession.h>

#include "Platform/SerialQueue.h"

#include <libssh2.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

class KeyTranscript;
struct ChannelRun;
struct HostKeyCheck;
struct KeyFiles;
struct MethodErrors;
struct OfferedMethods;

// What assertions name as their source file.
inline constexpr const char *engineSourceName = "SSHSession_libssh2";

class SSHSession_libssh2 : public SSHSession {
  public:
    // `session` handles are shared so that a stage that is waiting for the user keeps what it works
    // on when another thread calls `stop` meanwhile.
    using SessionHandle = std::shared_ptr<LIBSSH2_SESSION>;

    SSHSession_libssh2(std::optional<std::string> host, std::uint16_t port,
                       std::optional<std::string> user, std::optional<std::string> password,
                       std::optional<std::string> keyFilePath) noexcept;

    // Waits for the session queue to drain; does not disconnect.
    ~SSHSession_libssh2() override;

    // --- Session/SSHSession_libssh2.cpp: the life of a connection
    bool start(SSHErrorRef *error) noexcept override;
    void stop() noexcept override;
    bool execute(const std::shared_ptr<SSHCommand> &command, SSHErrorRef *error) noexcept override;
    bool isConnected() const noexcept override { return mIsConnected; }

    // --- The stages of `start`, in their order
    bool _createSocket(SSHErrorRef *error);              // Session/TCPConnection.cpp
    bool _startSession(SSHErrorRef *error);              // Session/Handshake.cpp
    bool _validatedHostFingerprint(SSHErrorRef *error);  // Identity/HostKeyVerification.cpp
    void _confirmHostKey(HostKeyCheck &check);           // Identity/HostKeyPrompt.cpp
    bool _authenticateWithAgent(SSHErrorRef *error);     // Auth/Agent.cpp
    bool _authenticateManually(SSHErrorRef *error);      // Auth/Manual.cpp
    bool _authenticateWithPublicKey(SSHErrorRef *error); // Auth/PublicKey.cpp
    bool _authenticateWithPassword(SSHErrorRef *error);  // Auth/Password.cpp
    bool _authenticateWithKeyboard(SSHErrorRef *error);  // Auth/KeyboardInteractive.cpp

    // --- While connected: sends a keepalive. Called on the main thread every 30 s.
    void keepAlive();

    // --- One command. Session queue only.
    // Commands/Execution.cpp
    bool _execute(const std::shared_ptr<SSHCommand> &command, SSHErrorRef *error);
    // Commands/ChannelIO.cpp
    bool _pump(LIBSSH2_SESSION *session, ChannelRun &run, SSHErrorRef *error);
    bool _waitForChannel(LIBSSH2_SESSION *session, SSHErrorRef *error);
    bool _readStreams(ChannelRun &run, bool *keepReading, SSHErrorRef *error);
    bool _readFromChannel(LIBSSH2_CHANNEL *channel, SSHPlatform::ByteBuffer &data, bool isStderr,
                          bool *keepReading, SSHErrorRef *error);
    bool _writeToChannel(LIBSSH2_CHANNEL *channel, SSHPlatform::ByteBuffer &data, bool *keepWriting,
                         SSHErrorRef *error);

    // --- The one teardown, from any state. Session queue only.
    void _cleanup();

    // --- Session/ErrorReporting.cpp. A null description or reason is left out, and all that
    // would follow it.
    SSHErrorRef _errorWithDescription(const std::optional<std::string> &description,
                                      const std::optional<std::string> &reason,
                                      std::int32_t code) const;
    // For a failed library call on the live session; quotes the library's last message.
    SSHErrorRef _errorFromFunction(const std::string &function, std::int32_t code) const;
    static std::string _stringForErrorCode(std::int32_t code);
    // _errorWithDescription for a stage of `start`, or for a connection that was lost later.
    SSHErrorRef _connectionError(const std::optional<std::string> &reason, std::int32_t code) const;
    SSHErrorRef _lostConnectionError(const std::optional<std::string> &reason,
                                     std::int32_t code) const;

  protected:
    // Runs a stage on the session queue with the live handle. Fails with an error of its own when
    // `stop` has taken the session away meanwhile.
    bool _onSessionQueue(SSHErrorRef *error, const std::function<bool(LIBSSH2_SESSION *)> &work);

    SessionHandle _session() const;

    // The user name for the library. A null one is a programming error, reported for `function`.
    const char *_requiredUser(const char *function) const;

    SSHPlatform::SerialQueue mSessionQueue;
    int mSocket = 0; // 0 means none; a failed socket call leaves -1
    LIBSSH2_AGENT *mAgent = nullptr;
    std::shared_ptr<SSHPlatform::RepeatingTimer> mKeepAliveTimer;
    std::atomic<bool> mIsConnected = false;

  private:
    bool _connect(SSHErrorRef *error);
    bool _stage(SSHSessionStage stage, bool (SSHSession_libssh2::*operation)(SSHErrorRef *),
                SSHErrorRef *error);
    bool _openSession(SSHErrorRef *error);
    void _adoptSession(LIBSSH2_SESSION *session);
    bool _becomeConnected();
    void _freeAgent();
    void _closeSocketAfter(SessionHandle session);
    void _fetchAndCheckHostKey(LIBSSH2_SESSION *session, HostKeyCheck &check, SSHErrorRef *error);
    std::string _addFailureText(const HostKeyCheck &check, int code, int keyBits) const;
    bool _offerAgentIdentities(LIBSSH2_SESSION *session, SSHErrorRef *error);
    bool _tryMethods(const OfferedMethods &offered, MethodErrors &errors);
    bool _tryUserSpecifiedKey(KeyTranscript &transcript);
    bool _tryStandardKey(const std::string &name, KeyTranscript &transcript);
    bool _tryKeyWithPrompt(const KeyFiles &files, KeyTranscript &transcript);
    int _tryKey(const KeyFiles &files, const std::optional<std::string> &passphrase,
                KeyTranscript &transcript);
    bool _openChannel(LIBSSH2_SESSION *session, ChannelRun &run, SSHErrorRef *error);
    bool _startCommand(const std::string &text, ChannelRun &run, SSHErrorRef *error);
    bool _runSudoPhase(LIBSSH2_SESSION *session, const std::string &password, ChannelRun &run,
                       SSHErrorRef *error);
    bool _drain(LIBSSH2_SESSION *session, const SSHCommand &command, ChannelRun &run,
                SSHErrorRef *error);
    void _closeChannel(LIBSSH2_SESSION *session, ChannelRun &run);
    bool _wasStopped() const;
    SSHErrorRef _stoppedError() const;

    mutable std::mutex mHandlesMutex; // guards mSession, mKeepAliveTimer and mStopped
    SessionHandle mSession;
    int mSessionSocket = 0;  // the socket that `mSession` closes with it
    bool mStopped = false;   // `stop` was called since the last `start`
    std::mutex mSocketMutex; // held while the socket connects, so that it is not closed under way
};
