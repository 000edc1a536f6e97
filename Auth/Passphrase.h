// What encrypted key files need.
#pragma once

#include <SSHSession/Secret.h>

#include <string>

namespace SSHEngine {

class Connection;

// Asked on the main thread; none when the user cancels or enters nothing, or nobody can be asked.
SSHPlatform::Secret requestPassphrase(const Connection &connection, const std::string &keyName);

// Reading an encrypted PEM file leaves its pass phrase in stack memory that is not in use any more
// and that nothing may overwrite for a long time.
void wipeDeadStack();

} // namespace SSHEngine
