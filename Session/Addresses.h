// Addresses of a host, and the order in which they are tried. Nothing here does any input or
// output.
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <string>
#include <vector>

namespace SSHEngine {

// Of either family, with its port and, where it has one, its scope.
struct Address {
    // Of an entry that getaddrinfo(3) has answered.
    Address(const sockaddr *first, std::size_t length);

    int family() const { return value.ss_family; }
    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&value); }
    std::string text() const; // in numbers, without the port
    bool operator==(const Address &other) const;

    sockaddr_storage value{};
    socklen_t size;
};

// The addresses as the system prefers them, but each once and the families in turn, so that one
// that leads nowhere holds up nothing (RFC 8305, section 4).
std::vector<Address> inTurn(const std::vector<Address> &preferred);

// Of the errno values with which two attempts have failed, 0 for none: what the network or the host
// said tells more than that this computer has no way there. The first one, of two that tell as
// much.
int moreTelling(int first, int second);

} // namespace SSHEngine
