// Names of hosts that known-hosts files hold as hashes alone.
#pragma once

#include "Identity/KnownHostsLines.h"

#include <libssh2.h>

namespace SSHEngine {

// The library computes the hashes. `session` serves for memory alone, and must live as long.
IsHashOf hashesBy(LIBSSH2_SESSION *session);

} // namespace SSHEngine
