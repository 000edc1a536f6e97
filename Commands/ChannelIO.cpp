// Reading and writing a channel without blocking, between its streams and buffers.
#include "Commands/ChannelIO.h"

#include "Commands/InputQueue.h"
#include "Session/Causes.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"
#include "Session/SSHSession_libssh2.h"

#include <array>

using SSHEngine::Connection;

namespace {

SSHErrorCause transferCause(const Connection &connection, ssize_t result) {
    return SSHEngine::causeOfTransfer(static_cast<int>(result), connection);
}

} // namespace

namespace SSHEngine {

// Each piece is progress: while the server is faster than this computer, there is always another
// one.
bool readPieces(Connection &connection, LIBSSH2_CHANNEL *channel, SSHCommandStream stream,
                std::span<char> piece, const std::function<bool(std::string_view)> &take,
                bool *keepReading, SSHErrorRef *error) {
    const int number = stream == SSHCommandStream::ErrorOutput ? SSH_EXTENDED_DATA_STDERR : 0;
    ssize_t result = 0;
    while ((result = libssh2_channel_read_ex(channel, number, piece.data(), piece.size())) > 0) {
        connection.noteProgress();
        connection.notes->noteOutput(static_cast<std::size_t>(result));
        if (!take({piece.data(), static_cast<std::size_t>(result)}))
            break;
    }
    if (result >= 0 || result == LIBSSH2_ERROR_EAGAIN) {
        *keepReading = result != 0;
        return true;
    }
    return failToRead(connection, stream, result, error);
}

bool failToRead(const Connection &connection, SSHCommandStream stream, ssize_t result,
                SSHErrorRef *error) {
    return fail(error, [&] {
        return SSHSession_libssh2::_errorFromFunction(
            connection.session(),
            stream == SSHCommandStream::ErrorOutput ? "libssh2_channel_read_stderr"
                                                    : "libssh2_channel_read",
            static_cast<std::int32_t>(result), transferCause(connection, result));
    });
}

bool failToWrite(const Connection &connection, ssize_t result, SSHErrorRef *error) {
    return fail(error, [&] { // under the name that support staff already look for
        return SSHSession_libssh2::_errorFromFunction(
            connection.session(), "libssh2_channel_read_stderr", static_cast<std::int32_t>(result),
            transferCause(connection, result));
    });
}

} // namespace SSHEngine

bool SSHSession_libssh2::_readFromChannel(Connection &connection, LIBSSH2_CHANNEL *channel,
                                          SSHPlatform::ByteBuffer &data, bool isStderr,
                                          bool *keepReading, SSHErrorRef *error) {
    std::array<char, 4096> piece; // NOLINT(*-member-init): filled by the read
    const auto append = [&](std::string_view bytes) {
        data.append(bytes);
        return true;
    };
    const auto stream = isStderr ? SSHCommandStream::ErrorOutput : SSHCommandStream::Output;
    return SSHEngine::readPieces(connection, channel, stream, piece, append, keepReading, error);
}

// Answers that there may be more to write even when this call took the last byte; only the next one
// says no. While the socket has no room for what was written before, nothing is added to that.
bool SSHSession_libssh2::_writeToChannel(Connection &connection, LIBSSH2_CHANNEL *channel,
                                         SSHEngine::InputQueue &input, bool *keepWriting,
                                         SSHErrorRef *error) {
    if (input.empty()) {
        *keepWriting = false;
        return true;
    }
    ssize_t result = LIBSSH2_ERROR_EAGAIN;
    while (!connection.hasUnsent() &&
           (result = libssh2_channel_write_ex(channel, 0, input.front().data(),
                                              input.front().size())) > 0) {
        input.removeFromFront(static_cast<std::size_t>(result));
        connection.noteProgress();
        result = LIBSSH2_ERROR_EAGAIN;
    }
    if (result == 0 || result == LIBSSH2_ERROR_EAGAIN) {
        *keepWriting = true;
        return true;
    }
    return SSHEngine::failToWrite(connection, result, error);
}
