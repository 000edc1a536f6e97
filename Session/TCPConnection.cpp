// The first stage of `start`: name look-up and TCP.
#include "Session/SSHSession_libssh2.h"

#include "Platform/Text.h"
#include "Platform/Wakeup.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <future>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>

using SSHEngine::Connection;
using SSHEngine::connectionError;
using SSHEngine::fail;
using SSHEngine::stoppedError;
using SSHPlatform::WaitFor;

namespace {

constexpr std::chrono::seconds connectTimeout(5);

// What getaddrinfo(3) has answered.
struct Found {
    int code = 0;   // its own, 0 for success
    int number = 0; // errno behind it
    in_addr address{};
};

// The first IPv4 address of the host.
Found lookUp(const std::optional<std::string> &host, std::uint16_t port) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *results = nullptr;
    Found found;
    errno = 0;
    found.code = ::getaddrinfo(host ? host->c_str() : nullptr, fmt::format("{}", port).c_str(),
                               &hints, &results);
    found.number = errno;
    if (found.code != 0)
        return found;
    sockaddr_in first{};
    std::memcpy(&first, results->ai_addr, sizeof first);
    found.address = first.sin_addr;
    ::freeaddrinfo(results);
    return found;
}

// Nothing ends a look-up that a name server leaves waiting. On a thread of its own it can be left
// behind. None when the connection is shut down meanwhile.
std::optional<Found> lookUpFor(const Connection &connection) {
    struct Shared {
        std::promise<Found> answer;
        SSHPlatform::Wakeup isDone;
    };
    const auto shared = std::make_shared<Shared>();
    const auto work = [shared, host = connection.engine.host(), port = connection.engine.port()] {
        shared->answer.set_value(lookUp(host, port));
        shared->isDone.signal();
    };
    try {
        std::thread(work).detach();
    } catch (const std::system_error &) { // no thread to be had: then here
        work();
    }
    if (shared->isDone.descriptor() >= 0 &&
        connection.waitFor(shared->isDone.descriptor(), WaitFor::Reading, std::chrono::hours(24)) <=
            0)
        return std::nullopt;
    return shared->answer.get_future().get();
}

// Small requests wait for small answers here; without this each would lose 40 ms to delayed
// acknowledgements. The other two keep the socket and its signal out of the host application's way.
void tune(int socket) {
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    ::fcntl(socket, F_SETFD, FD_CLOEXEC);
#ifdef SO_NOSIGPIPE
    ::setsockopt(socket, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
}

int beginConnecting(int socket, in_addr address, std::uint16_t port) {
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(port);
    peer.sin_addr = address;
    ::fcntl(socket, F_SETFL, O_NONBLOCK);
    return ::connect(socket, reinterpret_cast<const sockaddr *>(&peer), sizeof peer);
}

} // namespace

bool SSHSession_libssh2::_createSocket(Connection &connection, SSHErrorRef *error) {
    const auto failWith = [&](const std::string &reason, int number) {
        return fail(error, [&] { return connectionError(*this, reason, number); });
    };
    const auto failNumbered = [&](const char *sentence) {
        const int number = errno;
        return failWith(
            fmt::format("{} Error: {} ({}).", sentence, SSHPlatform::errnoText(number), number),
            number);
    };

    const std::optional<Found> found = lookUpFor(connection);
    if (!found)
        return fail(error, [this] { return stoppedError(*this); });
    if (found->code != 0)
        return failWith(fmt::format("Could not look up the host. Error: {} ({}).",
                                    ::gai_strerror(found->code), found->code),
                        found->number);

    const int descriptor = ::socket(AF_INET, SOCK_STREAM, 0);
    connection.adoptSocket(descriptor);
    if (descriptor == -1)
        return failNumbered("Could not create a socket.");
    tune(descriptor);

    // Whatever made connect answer -1, a refusal included, the socket becomes ready; a refused
    // connection is reported by the handshake, which meets it next.
    const int result = beginConnecting(descriptor, found->address, port());
    if (result != -1 && errno != EAGAIN)
        return failNumbered("Could not connect to the remote host.");
    const int ready = connection.wait(WaitFor::Either, connectTimeout);
    if (ready < 0)
        return failNumbered("Could not connect to the remote host.");
    if (ready == 0)
        return failWith("The connection timed out.", errno);
    ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
    return true;
}
