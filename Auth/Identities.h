// Today's practice of the "publickey" method (RFC 4252, section 7): the session's own key, then the
// agent's identities, then the standard files in ~/.ssh, none of them twice.
#pragma once

#include "Auth/MethodList.h"

#include <SSHSession/SSHError.h>

namespace SSHEngine {

class Connection;

// Tries the given key before the server is asked which methods it takes. Where it lets the user in,
// that saves the question: a round trip, and the time for which OpenSSH's server puts off its
// answer to a request that it refuses, as this question is. Else the key's turn below does not ask
// again, and goes on as if the key had been tried then. But the question counts as an attempt by
// now: so none is tried early where an agent may need all that a server allows, or where a password
// was given. None either that somebody must be asked about; and none after a keepalive, at which
// some servers hang up with the next request, whatever that is.
bool isLetInByGivenKey(Connection &connection);

// Whether such a trial shows that the server must have offered keys, which its list does not say:
// it leaves out a factor that it has taken, and there is none once the connection has ended. On the
// session queue.
bool hasOfferedKeys(const Connection &connection, const MethodList &list);

// Takes the place of the stages of the agent and of the key files, for sessions whose options say
// so (triesKeysOfToday). Every step is written to a transcript, which becomes the failure reason.
bool authenticateWithIdentities(Connection &connection, SSHErrorRef *error);

} // namespace SSHEngine
