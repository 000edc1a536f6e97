// The host keys on record, for sessions that know every type: those of ~/.ssh/known_hosts, and of
// the system's file, which is only read.
#pragma once

#include "Identity/HostKeyCheck.h"

#include <libssh2.h>

#include <string>

namespace SSHEngine {

class Connection;

// Before the handshake: asks the server for a key of a type that is recorded for it, if it has one,
// so that the key can be compared. Session queue.
void preferRecordedKeyTypes(const Connection &connection);

// Compares the server's key, which `check` has, with those on record: sets `checkResult`, and what
// the question, the record and a refusal need. Under the plain host name the key will do for every
// port, and another key says nothing of another port, as with ssh(1); a revoked one is revoked for
// all of them. Answers the code of a refusal, or 0. Session queue.
int checkRecordedKeys(const Connection &connection, HostKeyCheck &check);

// Adds a line for the key that the user has accepted, in the place of the host's other keys, and
// makes a missing ~/.ssh. Answers 0 or a code of the library's. Main thread.
int recordHostKey(const Connection &connection, const HostKeyCheck &check);

} // namespace SSHEngine
