// Attempts to connect to several addresses, of which the first to be answered wins (RFC 8305,
// section 5).
#pragma once

#include "Session/Addresses.h"

#include <chrono>
#include <functional>
#include <vector>

namespace SSHEngine {

class Connection;

// Begins to connect: answers a socket that is not waited for, or -1 with errno.
using BeginAttempt = std::function<int(const Address &)>;

// Tries the addresses in their order, the next one 250 ms after the one before or as soon as one
// has failed. Answers the connected socket, the caller's to close, or -1 with errno: ETIMEDOUT when
// the limit, which is for all of them together, has passed, ECANCELED when the connection has been
// shut down, else the most telling of the attempts' own.
int connectToFirst(const Connection &connection, const std::vector<Address> &addresses,
                   std::chrono::milliseconds limit, const BeginAttempt &begin);

} // namespace SSHEngine
