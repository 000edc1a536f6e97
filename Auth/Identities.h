// Today's practice of the "publickey" method (RFC 4252, section 7): the session's own key, then the
// agent's identities, then the standard files in ~/.ssh, none of them twice.
#pragma once

#include <SSHSession/SSHError.h>

namespace SSHEngine {

class Connection;

// Takes the place of the stages of the agent and of the key files, for sessions whose options say
// so (triesKeysOfToday). Every step is written to a transcript, which becomes the failure reason.
bool authenticateWithIdentities(Connection &connection, SSHErrorRef *error);

} // namespace SSHEngine
