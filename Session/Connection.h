// One connection to a server, from its socket to its end: the one owner of the TCP socket, of the
// library's session on it and of the agent's handle.
//
// `start` makes one, and its stages work on that one to their end. The engine points to the
// connection that it holds at present; a stage whose connection is no longer that one, or has been
// shut down, has been torn down. Whoever still works on it, or waits for the user, keeps it alive:
// the library's objects live until the last of them lets go.
//
// Threads. Library calls on `session` and `agent` belong on the engine's session queue; the last to
// let go of a connection closes it there (see ConnectionRef). `shutDown` and `isShutDown` may be
// called from any thread at any time. The socket is opened by the thread that calls `start`.
#pragma once

#include "Platform/Socket.h"
#include "Platform/Wakeup.h"
#include "Session/AgentReplies.h"
#include "Session/Notes.h"
#include "Session/ServerHello.h"
#include "Session/UserTime.h"
#include "Session/Watch.h"

#include <SSHSession/ByteBuffer.h>
#include <SSHSession/Secret.h>

#include <libssh2.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class SSHSession_libssh2;

namespace SSHEngine {

class Conversation;
struct EarlyTrial;

// Why a connection was shut down before its time. What the server or the network does to it is none
// of these: that shows in the library's calls.
enum class Ending {
    None,
    Stopped,       // by the host
    Cancelled,     // by the host, together with the call that uses it
    NoVersion,     // the server has sent plenty, and not yet its version line
    Flooded,       // the server has sent plenty that nobody asked for
    AskedTooOften, // the server has asked for the same secret again and again
    Unanswered,    // the server has not answered keepalives
    // A time limit of the session's options has passed; see TimeLimit.
    SlowHandshake,
    SlowLogIn,
    SlowCommand,
    SilentCommand,
};

constexpr bool isTimeLimit(Ending ending) {
    return ending >= Ending::SlowHandshake;
}

// What a log-in knows from one method to the next. For its caller's thread.
struct LogIn {
    // Typed by the user; gone when the log-in has ended.
    SSHPlatform::Secret password = SSHPlatform::Secret::none();
    bool refusedPassword = false;         // by the user
    bool hasAnswers = false;              // of the user's, to the server's questions
    std::vector<std::string> questions{}; // that the server has asked by the method under way
    bool leavesQuestions = false;         // of them some without an answer
    bool hasEnded = false; // the connection, by the server: there is nothing to ask for
    // Whether the server may have taken what the method had to offer, as one factor of several: the
    // library does not tell this from a refusal.
    bool mayHaveFactor = false;
    // The methods that the server has named since.
    std::optional<std::string> renewedMethods;
    std::string namedMethods;             // by the server, at last, and
    std::size_t attemptsBefore = 0;       // how many were noted by then
    Conversation *conversation = nullptr; // while the server may ask questions
    bool isPasswordSent = false;          // the one that was given, by the method of that name
    // Of the given key, which has not had its turn yet; null where there was none.
    std::shared_ptr<const EarlyTrial> earlyTrial;
};

class Connection {
  public:
    // `owner` must outlive the connection.
    explicit Connection(SSHSession_libssh2 &owner) noexcept;

    // Closes agent, session and socket, in this order. The server is told nothing but that the
    // TCP connection has ended.
    ~Connection();

    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    // Ends the connection for whoever uses it: every wait for the server, the agent, a name or the
    // user ends, and nothing is sent or received any more. Closes nothing, and waits for nothing.
    // Only the first reason counts.
    void shutDown(Ending why) noexcept;
    bool isShutDown() const noexcept { return mEnding != Ending::None; }
    Ending ending() const noexcept { return mEnding; }

    // Becomes readable once the connection is shut down; see Wakeup. For questions to the user.
    int endDescriptor() const noexcept { return mWakeup.descriptor(); }

    // Whether all stages of `start` have succeeded: only then may a command use it.
    bool isEstablished() const noexcept { return mIsEstablished; }
    void becomeEstablished() noexcept { mIsEstablished = true; }

    // Whether the `start` that makes it has not returned yet. Guarded by the engine's mutex.
    bool isStarting = true;
    // Commands that run on it or wait for their turn; guarded in the same way.
    int commandsUnderWay = 0;

    // What the server has shown at log-in that the observers know. Thread of `start`.
    std::string toldBanners;
    std::ptrdiff_t toldAttempts = 0;

    // Takes over what socket(2) has answered. 0 means none; a failed call leaves -1.
    void adoptSocket(int descriptor) noexcept;
    int socket() const noexcept { return mSocket; }

    // Makes the library's session, whose abstract pointer is this object. Null with errno when the
    // library cannot.
    LIBSSH2_SESSION *openSession() noexcept;
    LIBSSH2_SESSION *session() const noexcept { return mSession; }

    // Goes on with opening a session channel. Null with the library's last error when it cannot, or
    // with EAGAIN when it does not block; until it has answered otherwise, it is to be called
    // again.
    LIBSSH2_CHANNEL *openChannel() noexcept;

    // Makes the agent's handle; null when the library cannot.
    LIBSSH2_AGENT *openAgent() noexcept;
    void closeAgent() noexcept;
    LIBSSH2_AGENT *agent() const noexcept { return mAgent; }

    // The connection whose session has this abstract pointer.
    static Connection &of(void **abstract) { return *static_cast<Connection *>(*abstract); }

    // Waits for the socket, and for `source`, as waitForSocket does, and meanwhile sends what is
    // still unsent. Fails with ECANCELED once the connection is shut down. Any thread while the
    // socket is opened, later the session queue.
    int wait(SSHPlatform::WaitFor directions, std::chrono::milliseconds timeout, int source = -1);
    // The same for another descriptor.
    int waitFor(int descriptor, SSHPlatform::WaitFor directions, std::chrono::milliseconds timeout,
                int source = -1) const;
    // The same for several, as SSHPlatform::waitForAny does.
    int waitForAny(const std::vector<int> &sockets, std::chrono::milliseconds timeout) const;

    // Whether bytes that the library takes for sent have not found room in the socket yet.
    bool hasUnsent() const noexcept { return !mUnsent.empty(); }

    Watch watch{*this};
    // Whether the delegate is told when the server ends the connection in its own words; and
    // whether it was, so that it knows of the end already. Session queue only.
    bool tellsDisconnect = false;
    bool isEndTold = false;

    // The server has ended the connection in its own words.
    std::atomic<bool> isDisconnected = false;
    // Whether the connection has ended without this side's doing, and errno of the first transfer
    // that failed, 0 for none. Any thread.
    bool hasHungUp() const noexcept { return mHasHungUp; }
    int failure() const noexcept { return mFailure; }

    // Nothing that comes from here on is in the clear. Session queue only.
    void endHello() noexcept { mHello.reset(); }
    // What has arrived behind the byte at which the library gave up, such as the rest of a
    // database's greeting. On the session queue.
    void hearTheRest();

    // What has been received so far was of use: the count that limits a server's chatter begins
    // anew, and so does a silence. Session queue only.
    void noteProgress() noexcept {
        mUselessBytes = 0;
        mLastProgress = std::chrono::steady_clock::now();
    }
    // Any thread. Now, as long as it is the host that holds the connection up.
    std::chrono::steady_clock::time_point lastProgress() const noexcept {
        return mHolds > 0 ? std::chrono::steady_clock::now() : mLastProgress.load();
    }

    // Of questions that somebody waits for who works on this connection.
    UserTime &userTime() const noexcept { return mUserTime; }

    // Whether the server's questions have reached their limit; then the connection is shut down.
    bool isAskedTooOften() noexcept;

    // While an object of this kind lives, a read that finds nothing waits for a moment before it
    // says so. For calls that can only be repeated until the server has answered.
    class PatientReads {
      public:
        explicit PatientReads(Connection &connection) : mConnection(connection) {
            mConnection.mReadsArePatient = true;
        }
        ~PatientReads() { mConnection.mReadsArePatient = false; }
        PatientReads(const PatientReads &) = delete;
        PatientReads &operator=(const PatientReads &) = delete;

      private:
        Connection &mConnection;
    };

    // While an object of this kind lives, the library gets no more than so many bytes from the
    // socket; then it finds nothing there. One at a time. Session queue only.
    class Allowance {
      public:
        Allowance(Connection &connection, std::size_t bytes) : mConnection(connection) {
            mConnection.mReceivable = bytes;
        }
        ~Allowance() { mConnection.mReceivable = unlimited; }
        Allowance(const Allowance &) = delete;
        Allowance &operator=(const Allowance &) = delete;
        std::size_t left() const { return mConnection.mReceivable; }

      private:
        Connection &mConnection;
    };

    // While an object of this kind lives, it is the host, not the server, that keeps a command from
    // going on. Session queue only.
    class HeldUp {
      public:
        explicit HeldUp(Connection &connection) : mConnection(connection) { mConnection.hold(1); }
        ~HeldUp() { mConnection.hold(-1); }
        HeldUp(const HeldUp &) = delete;
        HeldUp &operator=(const HeldUp &) = delete;

      private:
        Connection &mConnection;
    };

    SSHSession_libssh2 &engine;
    LogIn logIn;

    // What is seen of this connection; whoever wants to know it later keeps it.
    const std::shared_ptr<Notes> notes;

  private:
    static ssize_t sendForLibrary(libssh2_socket_t descriptor, const void *bytes, std::size_t count,
                                  int flags, void **abstract);
    static ssize_t receiveForLibrary(libssh2_socket_t descriptor, void *bytes, std::size_t count,
                                     int flags, void **abstract);
    ssize_t sendToServer(std::string_view bytes, int flags);
    ssize_t receiveFromServer(void *bytes, std::size_t count, int flags);
    ssize_t sendToAgent(int descriptor, std::string_view bytes, int flags) const;
    ssize_t receiveFromAgent(int descriptor, void *bytes, std::size_t count, int flags);
    std::chrono::milliseconds patience() const; // of a read that finds nothing
    void sendUnsent();
    void sendAllUnsent();
    ssize_t received(const void *bytes, ssize_t count);
    void hear(std::string_view bytes);
    void noteFailure(int number);
    void hold(int change);
    bool hasServersVersion() const;

    const SSHPlatform::Wakeup mWakeup;
    std::atomic<Ending> mEnding = Ending::None;
    std::atomic<bool> mIsEstablished = false;
    std::atomic<int> mSocket = 0;
    LIBSSH2_SESSION *mSession = nullptr;
    LIBSSH2_AGENT *mAgent = nullptr;
    AgentReplies mAgentReplies;
    // What the library takes for sent. It would keep a packet that went out in part for exactly the
    // same call to repeat, and let no other call send meanwhile.
    SSHPlatform::ByteBuffer mUnsent;
    int mSendFailure = 0; // errno of a send that failed for good
    bool mReadsArePatient = false;
    static constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();
    std::size_t mReceivable = unlimited;
    std::size_t mUselessBytes = 0; // since the last progress
    std::atomic<std::chrono::steady_clock::time_point> mLastProgress{};
    std::atomic<int> mHolds = 0;
    std::optional<ServerHello> mHello{std::in_place};
    std::atomic<bool> mHasHungUp = false;
    std::atomic<int> mFailure = 0;
    int mQuestions = 0; // that the server has asked
    mutable UserTime mUserTime;
};

// Shared by the engine and by everybody who works on the connection.
using ConnectionRef = std::shared_ptr<Connection>;

} // namespace SSHEngine
