#include "Session/Causes.h"

#include "Session/Connection.h"

#include <libssh2.h>
#include <netdb.h>

#include <cerrno>

namespace SSHEngine {

using enum SSHErrorCause;

SSHErrorCause causeOfLookUp(int code) {
    switch (code) {
    case EAI_NONAME:
        return NameNotFound;
    case EAI_AGAIN:
    case EAI_FAIL:
    case EAI_SYSTEM:
        return NameServerFailed;
#ifdef EAI_NODATA
    case EAI_NODATA:
#endif
#ifdef EAI_ADDRFAMILY
    case EAI_ADDRFAMILY:
#endif
    case EAI_FAMILY:
        return NoUsableAddress;
    case EAI_MEMORY:
        return NoMemory;
    default:
        return Unknown;
    }
}

SSHErrorCause causeOfConnecting(int code) {
    switch (code) {
    case ECONNREFUSED:
        return Refused;
    case EHOSTUNREACH:
    case ENETUNREACH:
    case EACCES:
    case EPERM:
        return Unreachable;
    case ETIMEDOUT:
        return ConnectTimedOut;
    case EAFNOSUPPORT:
    case EADDRNOTAVAIL:
        return NoUsableAddress;
    case EMFILE:
    case ENFILE:
    case ENOBUFS:
        return NoSocket;
    case ENOMEM:
        return NoMemory;
    default:
        return Unknown;
    }
}

SSHErrorCause causeOfEnding(Ending ending) {
    switch (ending) {
    case Ending::None:
        break;
    case Ending::Stopped:
        return Stopped;
    case Ending::Cancelled:
        return Cancelled;
    case Ending::NoVersion:
        return NotSSH;
    case Ending::Flooded:
    case Ending::AskedTooOften:
        return ServerMisbehaved;
    case Ending::Unanswered:
        return ServerUnresponsive;
    case Ending::SlowHandshake:
        return HandshakeTimedOut;
    case Ending::SlowLogIn:
        return LogInTimedOut;
    case Ending::SlowCommand:
        return CommandTimedOut;
    case Ending::SilentCommand:
        return CommandSilent;
    }
    return Unknown;
}

bool isLoss(int code) {
    switch (code) {
    case LIBSSH2_ERROR_SOCKET_NONE:
    case LIBSSH2_ERROR_SOCKET_SEND:
    case LIBSSH2_ERROR_SOCKET_DISCONNECT:
    case LIBSSH2_ERROR_SOCKET_TIMEOUT:
    case LIBSSH2_ERROR_SOCKET_RECV:
    case LIBSSH2_ERROR_BAD_SOCKET:
        return true;
    default:
        return false;
    }
}

// What was sent, and not taken for minutes, the system gives up with that number.
SSHErrorCause causeOfLoss(const Connection &connection) {
    if (connection.isShutDown())
        return causeOfEnding(connection.ending());
    if (connection.isDisconnected)
        return DisconnectedByServer;
    return connection.failure() == ETIMEDOUT ? ServerUnresponsive : ConnectionLost;
}

SSHErrorCause causeOf(int code, const Connection &connection, SSHErrorCause otherwise) {
    if (isLoss(code) || connection.isDisconnected || connection.hasHungUp())
        return causeOfLoss(connection);
    return code == LIBSSH2_ERROR_ALLOC ? NoMemory : otherwise;
}

SSHErrorCause causeOfTransfer(int code, const Connection &connection) {
    switch (code) {
    case LIBSSH2_ERROR_TIMEOUT:
        return causeOf(code, connection, ServerUnresponsive);
    case LIBSSH2_ERROR_INVALID_MAC:
    case LIBSSH2_ERROR_DECRYPT:
    case LIBSSH2_ERROR_PROTO:
    case LIBSSH2_ERROR_ZLIB:
    case LIBSSH2_ERROR_OUT_OF_BOUNDARY:
    case LIBSSH2_ERROR_CHANNEL_PACKET_EXCEEDED:
    case LIBSSH2_ERROR_CHANNEL_WINDOW_EXCEEDED:
        return ServerMisbehaved;
    default:
        return causeOf(code, connection, Unknown);
    }
}

} // namespace SSHEngine
