// Which cause an error has that the system or the library gives a number for.
#pragma once

#include <SSHSession/SSHErrorCause.h>

namespace SSHEngine {

class Connection;
enum class Ending;

SSHErrorCause causeOfLookUp(int code);     // of getaddrinfo(3)
SSHErrorCause causeOfConnecting(int code); // errno; Unknown where it says nothing of the network
SSHErrorCause causeOfEnding(Ending ending);

// Whether the library's code says that the connection has ended.
bool isLoss(int code);

// Of a connection that has ended by itself. Any thread.
SSHErrorCause causeOfLoss(const Connection &connection);

// The same for a call on a command's channel. Any thread.
SSHErrorCause causeOfTransfer(int code, const Connection &connection);

// The same for a library call that has failed with `code`, or `otherwise` where the connection
// lives on.
SSHErrorCause causeOf(int code, const Connection &connection, SSHErrorCause otherwise);

} // namespace SSHEngine
