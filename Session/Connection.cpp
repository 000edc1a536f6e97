#include "Session/Connection.h"

#include "Session/LibraryCallback.h"
#include "Session/SSHSession_libssh2.h"
#include "Session/WipingAllocator.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace SSHEngine {

using SSHPlatform::forever;
using SSHPlatform::WaitFor;

namespace {

using Disconnect = void(LIBSSH2_SESSION *, int, const char *, int, const char *, int, void **);

// Far above what an honest server sends: a handshake takes some 10 kB, and what a channel's window
// lets in without being read, 2 MB.
constexpr std::size_t longestOpening = 1024UL * 1024;
constexpr std::size_t mostUselessBytes = 64UL * 1024 * 1024;
constexpr int mostQuestions = 100;

#ifndef MSG_NOSIGNAL
#define MSG_NOSIGNAL 0 // SO_NOSIGPIPE serves instead
#endif

// Answers the count, or a negative errno value, as the library wants it.
template <typename Transfer>
ssize_t uninterrupted(Transfer transfer) {
    while (true) {
        const ssize_t count = transfer();
        if (count >= 0)
            return count;
        if (errno != EINTR)
            return errno == EWOULDBLOCK ? -EAGAIN : -errno;
    }
}

ssize_t sendSome(int descriptor, std::string_view bytes, int flags) {
    return uninterrupted(
        [&] { return ::send(descriptor, bytes.data(), bytes.size(), flags | MSG_NOSIGNAL); });
}

ssize_t receiveSome(int descriptor, void *bytes, std::size_t count, int flags) {
    return uninterrupted([&] { return ::recv(descriptor, bytes, count, flags); });
}

} // namespace

Connection::Connection(SSHSession_libssh2 &owner) noexcept
    : engine(owner), notes(std::make_shared<Notes>(owner.SSHSession::facts())) {}

Connection::~Connection() {
    // With nothing to send or to receive, a channel that is still open is not waited for.
    shutDown(Ending::Stopped);
    closeAgent();
    if (mSession) {
        setLibraryCallback<Disconnect>(mSession, LIBSSH2_CALLBACK_DISCONNECT, nullptr);
        libssh2_session_free(mSession);
    }
    if (mSocket != 0)
        ::close(mSocket);
}

void Connection::shutDown(Ending why) noexcept {
    Ending none = Ending::None;
    mEnding.compare_exchange_strong(none, why);
    mWakeup.signal();
    if (mSocket > 0)
        ::shutdown(mSocket, SHUT_RDWR);
}

// Either this sees the flag, or whoever sets it sees the socket.
void Connection::adoptSocket(int descriptor) noexcept {
    mSocket = descriptor;
    if (isShutDown() && descriptor > 0)
        ::shutdown(descriptor, SHUT_RDWR);
}

LIBSSH2_SESSION *Connection::openSession() noexcept {
    mSession = makeWipingSession(this);
    if (!mSession)
        return nullptr;
    setLibraryCallback(mSession, LIBSSH2_CALLBACK_SEND, sendForLibrary);
    setLibraryCallback(mSession, LIBSSH2_CALLBACK_RECV, receiveForLibrary);
    return mSession;
}

LIBSSH2_CHANNEL *Connection::openChannel() noexcept {
    constexpr std::string_view type = "session";
    return libssh2_channel_open_ex(mSession, type.data(), type.size(),
                                   LIBSSH2_CHANNEL_WINDOW_DEFAULT, LIBSSH2_CHANNEL_PACKET_DEFAULT,
                                   nullptr, 0);
}

LIBSSH2_AGENT *Connection::openAgent() noexcept {
    mAgent = libssh2_agent_init(mSession);
    mAgentReplies = AgentReplies();
    return mAgent;
}

void Connection::closeAgent() noexcept {
    if (!mAgent)
        return;
    libssh2_agent_disconnect(mAgent);
    libssh2_agent_free(mAgent);
    mAgent = nullptr;
}

void Connection::hold(int change) {
    mLastProgress = std::chrono::steady_clock::now();
    mHolds += change;
    const bool isHeldUp = mHolds > 0;
    notes->note([isHeldUp](SSHFacts &facts) { facts.command.isHeldUp = isHeldUp; });
}

int Connection::wait(WaitFor directions, std::chrono::milliseconds timeout, int source) {
    const int ready =
        waitFor(mSocket, hasUnsent() ? directions | WaitFor::Writing : directions, timeout, source);
    if (ready > 0 && hasUnsent())
        sendUnsent();
    return ready;
}

int Connection::waitFor(int descriptor, WaitFor directions, std::chrono::milliseconds timeout,
                        int source) const {
    return SSHPlatform::waitForSocket(descriptor, directions, timeout, mWakeup.descriptor(),
                                      source);
}

int Connection::waitForAny(const std::vector<int> &sockets,
                           std::chrono::milliseconds timeout) const {
    return SSHPlatform::waitForAny(sockets, timeout, mWakeup.descriptor());
}

// The library reads and writes through these, the agent's socket as well as the server's.
ssize_t Connection::sendForLibrary(libssh2_socket_t descriptor, const void *bytes,
                                   std::size_t count, int flags, void **abstract) {
    Connection &connection = of(abstract);
    const std::string_view content(static_cast<const char *>(bytes), count);
    if (connection.isShutDown())
        return -ECONNABORTED;
    return descriptor == connection.mSocket ? connection.sendToServer(content, flags)
                                            : connection.sendToAgent(descriptor, content, flags);
}

ssize_t Connection::receiveForLibrary(libssh2_socket_t descriptor, void *bytes, std::size_t count,
                                      int flags, void **abstract) {
    Connection &connection = of(abstract);
    if (connection.isShutDown())
        return -ECONNABORTED;
    return descriptor == connection.mSocket
               ? connection.receiveFromServer(bytes, count, flags)
               : connection.receiveFromAgent(descriptor, bytes, count, flags);
}

// Takes everything, always. A blocking call then waits only for the answer, so the whole must be on
// its way before.
ssize_t Connection::sendToServer(std::string_view bytes, int flags) {
    sendUnsent();
    const ssize_t sent =
        hasUnsent() || mSendFailure != 0 ? -EAGAIN : sendSome(mSocket, bytes, flags);
    if (sent < 0 && sent != -EAGAIN)
        noteFailure(mSendFailure = static_cast<int>(-sent));
    mUnsent.append(bytes.substr(sent < 0 ? 0 : static_cast<std::size_t>(sent)));
    if (libssh2_session_get_blocking(mSession) != 0)
        sendAllUnsent();
    if (mSendFailure == 0)
        return static_cast<ssize_t>(bytes.size());
    mUnsent.clear();
    return -mSendFailure;
}

void Connection::sendUnsent() {
    while (hasUnsent() && mSendFailure == 0) {
        const ssize_t sent = sendSome(mSocket, mUnsent.view(), 0);
        if (sent == -EAGAIN)
            return;
        if (sent < 0)
            noteFailure(mSendFailure = static_cast<int>(-sent));
        else
            mUnsent.removeFromFront(static_cast<std::size_t>(sent));
    }
    if (mSendFailure != 0)
        mUnsent.clear();
}

void Connection::sendAllUnsent() {
    while (hasUnsent()) {
        if (wait(WaitFor::Writing, forever) < 0) {
            mSendFailure = errno;
            mUnsent.clear();
        }
    }
}

ssize_t Connection::receiveFromServer(void *bytes, std::size_t count, int flags) {
    count = std::min(count, mReceivable);
    if (count == 0)
        return -EAGAIN;
    const ssize_t received = receiveSome(mSocket, bytes, count, flags);
    const std::chrono::milliseconds time = patience();
    if (received != -EAGAIN || time.count() == 0 || wait(WaitFor::Reading, time) <= 0)
        return this->received(bytes, received);
    return this->received(bytes, receiveSome(mSocket, bytes, count, flags));
}

ssize_t Connection::received(const void *bytes, ssize_t count) {
    if (count <= 0) {
        if (count != -EAGAIN)
            noteFailure(static_cast<int>(-count));
        return count;
    }
    if (mReceivable != unlimited)
        mReceivable -= static_cast<std::size_t>(count);
    watch.noteSign();
    if (mHello)
        hear({static_cast<const char *>(bytes), static_cast<std::size_t>(count)});
    mUselessBytes += static_cast<std::size_t>(count);
    const bool isOpening = !hasServersVersion();
    if (mUselessBytes <= (isOpening ? longestOpening : mostUselessBytes))
        return count;
    shutDown(isOpening ? Ending::NoVersion : Ending::Flooded);
    return -ECONNABORTED;
}

void Connection::hear(std::string_view bytes) {
    if (mHello->take(bytes))
        notes->note([&](SSHFacts &facts) {
            const auto [hasHungUp, failure] =
                std::pair(facts.server.hasHungUp, facts.server.failure);
            facts.server = mHello->facts();
            facts.server.hasHungUp = hasHungUp;
            facts.server.failure = failure;
        });
    if (mHello->isOver())
        mHello.reset();
}

void Connection::hearTheRest() {
    constexpr std::size_t most = 1024;
    std::array<char, most> bytes{};
    const ssize_t count =
        mHello ? receiveSome(mSocket, bytes.data(), bytes.size(), MSG_DONTWAIT) : 0;
    if (count > 0)
        hear({bytes.data(), static_cast<std::size_t>(count)});
}

// 0 is the end of what comes, in good order. What this side has shut down says nothing.
void Connection::noteFailure(int number) {
    if (isShutDown())
        return;
    int none = 0;
    if (number != 0 && mFailure.compare_exchange_strong(none, number))
        notes->note([number](SSHFacts &facts) { facts.server.failure = number; });
    if ((number == 0 || number == ECONNRESET || number == EPIPE) && !mHasHungUp.exchange(true))
        notes->note([](SSHFacts &facts) { facts.server.hasHungUp = true; });
}

bool Connection::hasServersVersion() const {
    const char *const line = libssh2_session_banner_get(mSession);
    return line && std::string_view(line).starts_with("SSH-");
}

bool Connection::isAskedTooOften() noexcept {
    if (++mQuestions <= mostQuestions)
        return false;
    shutDown(Ending::AskedTooOften);
    return true;
}

std::chrono::milliseconds Connection::patience() const {
#if LIBSSH2_VERSION_NUM < 0x010b00
    // This version takes a wait of its own that a signal interrupts for a time-out.
    if (libssh2_session_get_blocking(mSession) != 0)
        return std::chrono::seconds(30);
#endif
    return std::chrono::milliseconds(mReadsArePatient ? 100 : 0);
}

// To the agent the library writes on a blocking socket, on which a signal would end the host.
ssize_t Connection::sendToAgent(int descriptor, std::string_view bytes, int flags) const {
#ifdef SO_NOSIGPIPE
    const int on = 1;
    ::setsockopt(descriptor, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
    ssize_t sent = -EAGAIN;
    while (sent == -EAGAIN) {
        if (waitFor(descriptor, WaitFor::Writing, forever) < 0)
            return -errno;
        sent = sendSome(descriptor, bytes, flags | MSG_DONTWAIT);
    }
    return sent;
}

// The end of the agent is an error: the library would ask for the rest again and again.
ssize_t Connection::receiveFromAgent(int descriptor, void *bytes, std::size_t count, int flags) {
    if (waitFor(descriptor, WaitFor::Reading, forever) < 0)
        return -errno;
    const ssize_t received = receiveSome(descriptor, bytes, count, flags);
    if (received == 0)
        return -ECONNRESET;
    const std::string_view content(static_cast<const char *>(bytes),
                                   received < 0 ? 0 : static_cast<std::size_t>(received));
    return mAgentReplies.admit(content) ? received : -EMSGSIZE;
}

} // namespace SSHEngine
