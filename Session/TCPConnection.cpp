// The first stage of `start`: name look-up and TCP.
#include "Session/SSHSession_libssh2.h"

#include "Platform/Socket.h"
#include "Platform/Text.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace {

constexpr std::chrono::seconds connectTimeout(5);

std::string withErrno(const char *sentence, int number) {
    return fmt::format("{} Error: {} ({}).", sentence, SSHPlatform::errnoText(number), number);
}

// The first IPv4 address of the host. The answer is getaddrinfo's own code, 0 for success.
int lookUp(const std::optional<std::string> &host, std::uint16_t port, in_addr &address) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *results = nullptr;
    const int code = ::getaddrinfo(host ? host->c_str() : nullptr, fmt::format("{}", port).c_str(),
                                   &hints, &results);
    if (code != 0)
        return code;
    sockaddr_in first{};
    std::memcpy(&first, results->ai_addr, sizeof first);
    address = first.sin_addr;
    ::freeaddrinfo(results);
    return 0;
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

bool SSHSession_libssh2::_createSocket(SSHErrorRef *error) {
    const auto fail = [&](const char *sentence, int number) {
        if (error)
            *error = _connectionError(withErrno(sentence, number), number);
        return false;
    };

    in_addr address{};
    if (const int code = lookUp(host(), port(), address)) {
        const int number = errno;
        if (error)
            *error = _connectionError(fmt::format("Could not look up the host. Error: {} ({}).",
                                                  ::gai_strerror(code), code),
                                      number);
        return false;
    }

    const std::lock_guard lock(mSocketMutex);
    mSocket = ::socket(AF_INET, SOCK_STREAM, 0);
    if (mSocket == -1)
        return fail("Could not create a socket.", errno);
    tune(mSocket);

    // Whatever made connect answer -1, a refusal included, the socket becomes ready; a refused
    // connection is reported by the handshake, which meets it next.
    const int result = beginConnecting(mSocket, address, port());
    if (result != -1 && errno != EAGAIN)
        return fail("Could not connect to the remote host.", errno);
    const int ready =
        SSHPlatform::waitForSocket(mSocket, SSHPlatform::WaitFor::Either, connectTimeout);
    if (ready < 0)
        return fail("Could not connect to the remote host.", errno);
    if (ready == 0) {
        const int number = errno;
        if (error)
            *error = _connectionError("The connection timed out.", number);
        return false;
    }
    ::fcntl(mSocket, F_SETFL, ::fcntl(mSocket, F_GETFL) & ~O_NONBLOCK);
    return true;
}
