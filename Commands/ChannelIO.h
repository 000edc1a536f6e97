// Reading and writing a channel without blocking, for those operations of the engine's that do so
// and for flows.
#pragma once

#include <SSHSession/SSHCommandFlow.h>
#include <SSHSession/SSHError.h>

#include <libssh2.h>

#include <sys/types.h>

#include <functional>
#include <span>
#include <string_view>

namespace SSHEngine {

class Connection;

// Session queue only. Reads into `piece`, and hands on what has come, until there is nothing more
// for now or `take` says that it has enough. `keepReading` becomes whether there may be more.
bool readPieces(Connection &connection, LIBSSH2_CHANNEL *channel, SSHCommandStream stream,
                std::span<char> piece, const std::function<bool(std::string_view)> &take,
                bool *keepReading, SSHErrorRef *error);

// These report what the library answered to a read, and to a write.
bool failToRead(const Connection &connection, SSHCommandStream stream, ssize_t result,
                SSHErrorRef *error);
bool failToWrite(const Connection &connection, ssize_t result, SSHErrorRef *error);

} // namespace SSHEngine
