// What the files of known hosts hold of one host, and whether another key could be recorded.
#pragma once

#include "Identity/KnownHostsLines.h"

#include <SSHSession/SSHFacts.h>

namespace SSHEngine {

// Of the user's file and, where a session reads it, the system's. Never blocks.
SSHKnownHostsFacts knownHostsFacts(const NamedHost &host, const SSHSessionOptions &options);

} // namespace SSHEngine
