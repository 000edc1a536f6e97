// Why two sides cannot speak with each other (RFC 4253, section 7.1).
#pragma once

#include <SSHSession/SSHFacts.h>

#include <optional>

namespace SSHEngine {

// The first kind of algorithm of which the client's list and the server's have nothing in common;
// none where they have something of each. A cipher that is its own MAC needs no other, and
// where the client's list is empty nothing is known of it.
std::optional<SSHErrorCause> nothingInCommon(const SSHAlgorithms &client,
                                             const SSHAlgorithms &server);

} // namespace SSHEngine
