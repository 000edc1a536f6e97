// Moves bytes between a channel and three buffers, without blocking.
#include "Session/SSHSession_libssh2.h"

#include "Commands/ChannelRun.h"
#include "Platform/Socket.h"
#include "Platform/Text.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <chrono>

namespace {

constexpr std::chrono::milliseconds pumpWait(100);

SSHPlatform::WaitFor blockedDirections(LIBSSH2_SESSION *session) {
    static_assert(LIBSSH2_SESSION_BLOCK_INBOUND ==
                  static_cast<unsigned>(SSHPlatform::WaitFor::Reading));
    static_assert(LIBSSH2_SESSION_BLOCK_OUTBOUND ==
                  static_cast<unsigned>(SSHPlatform::WaitFor::Writing));
    return static_cast<SSHPlatform::WaitFor>(
        static_cast<unsigned>(libssh2_session_block_directions(session)) &
        static_cast<unsigned>(SSHPlatform::WaitFor::Either));
}

} // namespace

bool SSHSession_libssh2::_readFromChannel(LIBSSH2_CHANNEL *channel, SSHPlatform::ByteBuffer &data,
                                          bool isStderr, bool *keepReading, SSHErrorRef *error) {
    const int stream = isStderr ? SSH_EXTENDED_DATA_STDERR : 0;
    std::array<char, 4096> piece; // NOLINT(*-member-init): filled by the read
    ssize_t result = 0;
    while ((result = libssh2_channel_read_ex(channel, stream, piece.data(), piece.size())) > 0)
        data.append({piece.data(), static_cast<std::size_t>(result)});
    if (result == 0 || result == LIBSSH2_ERROR_EAGAIN) {
        *keepReading = result != 0;
        return true;
    }
    if (error)
        *error =
            _errorFromFunction(isStderr ? "libssh2_channel_read_stderr" : "libssh2_channel_read",
                               static_cast<std::int32_t>(result));
    return false;
}

// Answers that there may be more to write even when this call took the last byte; only the next one
// says no.
bool SSHSession_libssh2::_writeToChannel(LIBSSH2_CHANNEL *channel, SSHPlatform::ByteBuffer &data,
                                         bool *keepWriting, SSHErrorRef *error) {
    if (data.empty()) {
        *keepWriting = false;
        return true;
    }
    ssize_t result = 0;
    while ((result = libssh2_channel_write_ex(channel, 0, data.data(), data.size())) > 0)
        data.removeFromFront(static_cast<std::size_t>(result));
    if (result == 0 || result == LIBSSH2_ERROR_EAGAIN) {
        *keepWriting = true;
        return true;
    }
    if (error) // under the name that support staff already look for
        *error =
            _errorFromFunction("libssh2_channel_read_stderr", static_cast<std::int32_t>(result));
    return false;
}

bool SSHSession_libssh2::_waitForChannel(LIBSSH2_SESSION *session, SSHErrorRef *error) {
    if (SSHPlatform::waitForSocket(mSocket, blockedDirections(session), pumpWait) != -1)
        return true;
    const int number = errno;
    if (error)
        *error = _lostConnectionError(
            fmt::format("Socket error. Error: {} ({}).", SSHPlatform::errnoText(number), number),
            number);
    return false;
}

bool SSHSession_libssh2::_readStreams(ChannelRun &run, bool *keepReading, SSHErrorRef *error) {
    bool outputContinues = false;
    bool errorOutputContinues = false;
    if (!_readFromChannel(run.channel, *run.output, false, &outputContinues, error) ||
        !_readFromChannel(run.channel, *run.errorOutput, true, &errorOutputContinues, error))
        return false;
    *keepReading = outputContinues || errorOutputContinues;
    return true;
}

bool SSHSession_libssh2::_pump(LIBSSH2_SESSION *session, ChannelRun &run, SSHErrorRef *error) {
    run.keepReading = false;
    run.keepWriting = false;
    bool streamsContinue = false;
    if ((run.mayBeSilent && !_waitForChannel(session, error)) ||
        !_readStreams(run, &streamsContinue, error) ||
        !_writeToChannel(run.channel, run.input, &run.keepWriting, error))
        return false;
    run.mayBeSilent = true;
    run.keepReading = streamsContinue && libssh2_channel_eof(run.channel) == 0;
    return true;
}
