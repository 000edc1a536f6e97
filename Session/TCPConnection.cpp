// The first stage of `start`: name look-up and TCP.
#include "Session/SSHSession_libssh2.h"

#include "Platform/DetachedThread.h"
#include "Platform/Socket.h"
#include "Platform/Text.h"
#include "Platform/Wakeup.h"
#include "Session/AddressRace.h"
#include "Session/Causes.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"
#include "Session/LookUp.h"
#include "Session/TimeLimit.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <system_error>
#include <vector>

using SSHEngine::Address;
using SSHEngine::Connection;
using SSHEngine::connectionError;
using SSHEngine::endedStartError;
using SSHEngine::fail;
using SSHEngine::Found;
using SSHPlatform::WaitFor;

namespace {

int familyOf(const SSHSessionOptions &options) {
    if (!options.triesEveryAddress || options.addressFamily == SSHAddressFamily::IPv4)
        return AF_INET;
    return options.addressFamily == SSHAddressFamily::IPv6 ? AF_INET6 : AF_UNSPEC;
}

// All addresses are asked for, reachable or not: literal ones must be understood, and an attempt
// that leads nowhere fails at once.
Found lookUp(const std::optional<std::string> &host, std::uint16_t port,
             const SSHSessionOptions &options) {
    // Which would be this computer.
    if (options.triesEveryAddress && host.value_or("").empty())
        return {.code = EAI_NONAME};
    return SSHEngine::lookUp(host ? host->c_str() : nullptr, port, familyOf(options));
}

// Nothing ends a look-up that a name server leaves waiting. On a thread of its own it can be left
// behind. None when the connection is shut down meanwhile.
std::optional<Found> lookUpFor(const Connection &connection) {
    struct Shared {
        std::promise<Found> answer;
        SSHPlatform::Wakeup isDone;
    };
    const auto shared = std::make_shared<Shared>();
    const SSHSession &session = connection.engine;
    const auto work = [shared, host = session.host(), port = session.port(),
                       options = session.options()] {
        shared->answer.set_value(lookUp(host, port, options));
        shared->isDone.signal();
    };
    try {
        SSHPlatform::startDetachedThread(work);
    } catch (const std::system_error &) { // no thread to be had: then here
        work();
    }
    if (shared->isDone.descriptor() >= 0 &&
        connection.waitFor(shared->isDone.descriptor(), WaitFor::Reading, SSHPlatform::forever) <=
            0 &&
        connection.isShutDown())
        return std::nullopt;
    return shared->answer.get_future().get();
}

void set(int socket, int level, int option, int value) {
    ::setsockopt(socket, level, option, &value, sizeof value);
}

// A server that has vanished answers nothing, and without these nobody would ever ask it: after a
// minute of silence the system does, and gives up a minute later. What it was sent is waited for
// just as long.
void noticeVanishedPeer(int socket) {
    constexpr int idleSeconds = 60;
    constexpr int probeSeconds = 15;
    constexpr int probes = 4;
    set(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
#ifdef TCP_KEEPIDLE
    set(socket, IPPROTO_TCP, TCP_KEEPIDLE, idleSeconds);
#elif defined(TCP_KEEPALIVE)
    set(socket, IPPROTO_TCP, TCP_KEEPALIVE, idleSeconds);
#endif
#ifdef TCP_KEEPINTVL
    set(socket, IPPROTO_TCP, TCP_KEEPINTVL, probeSeconds);
    set(socket, IPPROTO_TCP, TCP_KEEPCNT, probes);
#endif
#ifdef TCP_USER_TIMEOUT
    constexpr int milliseconds = 1000;
    set(socket, IPPROTO_TCP, TCP_USER_TIMEOUT,
        (idleSeconds + probes * probeSeconds) * milliseconds);
#endif
}

void tune(int socket) {
    // Small requests wait for small answers here; without this each would lose 40 ms to delayed
    // acknowledgements.
    set(socket, IPPROTO_TCP, TCP_NODELAY, 1);
    noticeVanishedPeer(socket);
#ifdef SO_NOSIGPIPE
    set(socket, SOL_SOCKET, SO_NOSIGPIPE, 1);
#endif
}

int beginConnecting(int socket, const Address &peer) {
    ::fcntl(socket, F_SETFL, O_NONBLOCK);
    return ::connect(socket, peer.get(), peer.size);
}

int beginAttempt(const Address &peer) {
    const int descriptor = SSHPlatform::openSocket(peer.family());
    if (descriptor == -1)
        return -1;
    tune(descriptor);
    if (beginConnecting(descriptor, peer) == 0 || errno == EINPROGRESS || errno == EINTR)
        return descriptor;
    const int number = errno;
    ::close(descriptor);
    errno = number;
    return -1;
}

void noteFound(const Connection &connection, const Found &found,
               const std::vector<Address> &addresses) {
    connection.notes->note([&](SSHFacts &facts) {
        facts.lookUpCode = found.code;
        for (const Address &address : addresses)
            facts.addresses.push_back({.address = address.text()});
    });
}

// A socket that is ready may have been refused as well, which the handshake meets.
void noteIfConnected(const Connection &connection) {
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    if (::getpeername(connection.socket(), reinterpret_cast<sockaddr *>(&peer), &size) == 0)
        connection.notes->note([](SSHFacts &facts) { facts.addresses.front().isConnected = true; });
}

void makeBlocking(int descriptor) {
    ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
}

} // namespace

bool SSHSession_libssh2::_createSocket(Connection &connection, SSHErrorRef *error) {
    using enum SSHErrorCause;
    const auto failWith = [&](const std::string &reason, int number, SSHErrorCause cause) {
        return fail(error, [&] { return connectionError(*this, reason, number, cause); });
    };
    const auto failNumbered = [&](const char *sentence, int number, SSHErrorCause cause) {
        return failWith(
            fmt::format("{} Error: {} ({}).", sentence, SSHPlatform::errnoText(number), number),
            number, cause);
    };
    const auto failConnecting = [&](int number) {
        return failNumbered("Could not connect to the remote host.", number,
                            number == ECONNRESET ? ClosedEarly // as soon as it was made
                                                 : SSHEngine::causeOfConnecting(number));
    };

    const std::optional<Found> found = lookUpFor(connection);
    if (!found)
        return fail(error, [&] { return endedStartError(connection); });
    const std::vector<Address> addresses =
        options().triesEveryAddress ? inTurn(found->addresses) : found->addresses;
    noteFound(connection, *found, addresses);
    if (found->code != 0)
        return failWith(fmt::format("Could not look up the host. Error: {} ({}).",
                                    ::gai_strerror(found->code), found->code),
                        found->number, SSHEngine::causeOfLookUp(found->code));
    const std::chrono::milliseconds limit = SSHEngine::timeLimit(options().connectTimeout);
    if (options().triesEveryAddress) {
        const int connected = SSHEngine::connectToFirst(connection, addresses, limit, beginAttempt);
        if (connected < 0)
            return errno == ETIMEDOUT
                       ? failWith("The connection timed out.", ETIMEDOUT, ConnectTimedOut)
                       : failConnecting(errno);
        makeBlocking(connected);
        connection.adoptSocket(connected);
        return true;
    }

    const int descriptor = SSHPlatform::openSocket(AF_INET);
    connection.adoptSocket(descriptor);
    if (descriptor == -1)
        return failNumbered("Could not create a socket.", errno, NoSocket);
    tune(descriptor);

    // Whatever made connect answer -1, a refusal included, the socket becomes ready; a refused
    // connection is reported by the handshake, which meets it next.
    const int result = beginConnecting(descriptor, addresses.front());
    if (result != -1 && errno != EAGAIN)
        return failConnecting(errno);
    if (result == -1 && errno != EINPROGRESS)
        connection.notes->note(
            [number = errno](SSHFacts &facts) { facts.addresses.front().error = number; });
    const int ready = connection.wait(WaitFor::Either, limit);
    if (ready < 0)
        return failConnecting(errno);
    if (ready == 0)
        return failWith("The connection timed out.", errno, ConnectTimedOut);
    noteIfConnected(connection);
    makeBlocking(descriptor);
    return true;
}
