// The addresses of a host, from the system.
#pragma once

#include "Session/Addresses.h"

#include <cstdint>
#include <vector>

namespace SSHEngine {

// What getaddrinfo(3) has answered.
struct Found {
    int code = 0;   // its own, 0 for success
    int number = 0; // errno behind it
    std::vector<Address> addresses = {};
};

// For TCP. `family` and `flags` are those of its hints; a null `host` is this computer. Waits for
// name servers, and nothing ends that.
Found lookUp(const char *host, std::uint16_t port, int family, int flags = 0);

} // namespace SSHEngine
