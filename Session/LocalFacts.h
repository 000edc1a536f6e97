// What can be looked at on this computer when a session has failed.
#pragma once

#include <SSHSession/SSHFacts.h>

class SSHSession;

namespace SSHEngine {

// Reads the key files that the session has and those of ~/.ssh, the known-hosts files and the
// agent's list. Changes nothing, and asks nobody but the agent. Any thread; never on the session
// queue's behalf.
SSHLocalFacts localFacts(const SSHSession &session);

} // namespace SSHEngine
