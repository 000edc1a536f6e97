#include "Session/LookUp.h"

#include <netdb.h>
#include <sys/socket.h>

#include <fmt/format.h>

#include <cerrno>

namespace SSHEngine {

Found lookUp(const char *host, std::uint16_t port, int family, int flags) {
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags;
    addrinfo *results = nullptr;
    Found found;
    errno = 0;
    found.code = ::getaddrinfo(host, fmt::format("{}", port).c_str(), &hints, &results);
    found.number = errno;
    if (found.code != 0)
        return found;
    for (const addrinfo *each = results; each; each = each->ai_next)
        found.addresses.emplace_back(each->ai_addr, each->ai_addrlen);
    ::freeaddrinfo(results);
    return found;
}

} // namespace SSHEngine
