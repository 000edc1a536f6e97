// Whether the server would take a key, before anything is signed.
#pragma once

#include <libssh2.h>

#include <string_view>

namespace SSHEngine {

// Offers the public key `blob` (RFC 4252, section 7). Sets `isWanted` where the server would take
// it; answers the library's code, which then is that of a signature that was not made. Session
// queue only.
int probeKey(LIBSSH2_SESSION *session, const char *user, std::string_view blob, bool &isWanted);

} // namespace SSHEngine
