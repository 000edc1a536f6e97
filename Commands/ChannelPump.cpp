#include "Commands/ChannelPump.h"

#include "Commands/ChannelIO.h"
#include "Platform/Text.h"
#include "Session/Causes.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"
#include "Session/SSHSession_libssh2.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

namespace SSHEngine {

using SSHPlatform::WaitFor;
using enum SSHCommandStream;

namespace {

constexpr std::chrono::milliseconds pumpWait(100);
// Of a flow: what is asked of the library at once, and after how much of one stream it is another
// one's turn.
constexpr std::size_t pieceSize = 32UL * 1024;
constexpr std::size_t partSize = 1024UL * 1024;
constexpr std::size_t mostForNotes = 1024;

WaitFor blockedDirections(LIBSSH2_SESSION *session) {
    static_assert(LIBSSH2_SESSION_BLOCK_INBOUND == static_cast<unsigned>(WaitFor::Reading));
    static_assert(LIBSSH2_SESSION_BLOCK_OUTBOUND == static_cast<unsigned>(WaitFor::Writing));
    return static_cast<WaitFor>(static_cast<unsigned>(libssh2_session_block_directions(session)) &
                                static_cast<unsigned>(WaitFor::Either));
}

} // namespace

ChannelPump::ChannelPump(Connection &connection, LIBSSH2_CHANNEL *channel,
                         const SSHOutputSink &sink)
    : mConnection(connection), mChannel(channel) {
    if (!sink)
        return;
    mOutputFlow.emplace(connection, sink);
    mPiece.resize(pieceSize);
}

bool ChannelPump::step(SSHErrorRef *error) {
    keepReading = false;
    keepWriting = false;
    return (!std::exchange(mMayWait, true) || wait(error)) && read(error) && write(error);
}

// A flow looks out for the server even where the library waits for nothing: it may be the host that
// is waited for. One that takes nothing is asked again after a pause, whatever the server says.
bool ChannelPump::wait(SSHErrorRef *error) {
    const WaitFor blocked = blockedDirections(mConnection.session());
    const bool flows = mOutputFlow || mInputFlow;
    const bool isDeaf = mOutputFlow && mOutputFlow->isStuck() && mHasClosed;
    const int source = input.empty() && awaitsInput() ? mInputFlow->descriptor() : -1;
    const WaitFor directions = isDeaf  ? WaitFor::Nothing
                               : flows ? blocked | WaitFor::Reading
                                       : blocked;
    if (mConnection.watch.wait(directions, pumpWait, source) != -1)
        return true;
    const int number = errno;
    return fail(error, [&] {
        return lostConnectionError(
            mConnection.engine,
            fmt::format("Socket error. Error: {} ({}).", SSHPlatform::errnoText(number), number),
            number, causeOfLoss(mConnection));
    });
}

// At the end of the channel nothing more would end a wait before its time.
bool ChannelPump::read(SSHErrorRef *error) {
    bool outputContinues = false;
    bool errorOutputContinues = false;
    if (!readOutput(&outputContinues, error) ||
        !readStream(ErrorOutput, &errorOutputContinues, error))
        return false;
    keepReading = (outputContinues || errorOutputContinues) &&
                  (libssh2_channel_eof(mChannel) == 0 || holdsOutput());
    return true;
}

bool ChannelPump::readOutput(bool *continues, SSHErrorRef *error) {
    return readStream(Output, continues, error);
}

bool ChannelPump::readStream(SSHCommandStream stream, bool *continues, SSHErrorRef *error) {
    if (mOutputFlow)
        return readPart(stream, continues, error);
    const std::shared_ptr<SSHPlatform::ByteBuffer> &data = bufferOf(stream);
    const std::size_t before = data->size();
    const bool succeeded = SSHSession_libssh2::_readFromChannel(
        mConnection, mChannel, *data, stream == ErrorOutput, continues, error);
    mArrived += data->size() - before;
    return succeeded;
}

bool ChannelPump::readPart(SSHCommandStream stream, bool *continues, SSHErrorRef *error) {
    *continues = true;
    if (!mOutputFlow->handHeld(stream))
        return false;
    if (mOutputFlow->holds(stream)) {
        mMayWait = mMayWait && mOutputFlow->isStuck();
        return attend(error);
    }
    std::size_t read = 0;
    bool goesOn = true;
    const auto takeSome = [&](std::string_view piece) {
        read += piece.size();
        goesOn = take(stream, piece);
        return goesOn && read < partSize && !mOutputFlow->holds(stream);
    };
    if (!readPieces(mConnection, mChannel, stream, mPiece, takeSome, continues, error) || !goesOn)
        return false;
    // The server, or the sink, may have more to give or room for more.
    if (read >= partSize || (mOutputFlow->holds(stream) && !mOutputFlow->isStuck()))
        doNotWait();
    return true;
}

bool ChannelPump::take(SSHCommandStream stream, std::string_view piece) {
    mArrived += piece.size();
    if (!mIsFlowing) {
        bufferOf(stream)->append(piece);
        return true;
    }
    keepForNotes(stream, piece);
    return mOutputFlow->hand(stream, piece);
}

// The beginning of the output, and the end of the error output.
void ChannelPump::keepForNotes(SSHCommandStream stream, std::string_view piece) const {
    SSHPlatform::ByteBuffer &kept = *bufferOf(stream);
    if (stream == Output)
        return kept.append(piece.substr(0, mostForNotes - std::min(kept.size(), mostForNotes)));
    kept.append(piece.substr(piece.size() - std::min(piece.size(), mostForNotes)));
    kept.removeFromFront(kept.size() - std::min(kept.size(), mostForNotes));
}

bool ChannelPump::beginOutputFlow() {
    mIsFlowing = mOutputFlow.has_value();
    if (!mIsFlowing)
        return true;
    const auto handBuffer = [this](SSHCommandStream stream) {
        const SSHPlatform::ByteBuffer begin(bufferOf(stream)->view());
        bufferOf(stream)->clear();
        keepForNotes(stream, begin.view());
        return begin.empty() || mOutputFlow->hand(stream, begin.view());
    };
    return handBuffer(Output) && handBuffer(ErrorOutput);
}

// Takes what is not output, such as the server's own questions, so that it is not taken for lost
// while the host has no room. Widens no window.
bool ChannelPump::attend(SSHErrorRef *error) {
    int code = libssh2_channel_wait_eof(mChannel);
    if (code == 0)
        code = libssh2_channel_wait_closed(mChannel);
    mHasClosed = code == 0;
    return code == 0 || code == LIBSSH2_ERROR_EAGAIN ||
           failToRead(mConnection, Output, code, error);
}

void ChannelPump::queueInput(std::shared_ptr<const void> owner, std::string_view bytes) {
    input.append(std::move(owner), bytes);
    doNotWait();
}

void ChannelPump::beginInputFlow(int descriptor, SSHInputSource source) {
    mInputFlow.emplace(mConnection, descriptor, std::move(source));
    doNotWait();
}

bool ChannelPump::write(SSHErrorRef *error) {
    return mInputFlow ? writeFlow(error)
                      : SSHSession_libssh2::_writeToChannel(mConnection, mChannel, input,
                                                            &keepWriting, error);
}

// Never passes nothing to the library, which would make a packet of it.
bool ChannelPump::writeFlow(SSHErrorRef *error) {
    ssize_t result = 0;
    std::size_t written = 0;
    do {
        if (!refill(error))
            return false;
        result =
            input.empty() || mConnection.hasUnsent()
                ? 0
                : libssh2_channel_write_ex(mChannel, 0, input.front().data(), input.front().size());
        if (result > 0) {
            input.removeFromFront(static_cast<std::size_t>(result));
            mConnection.noteProgress();
            written += static_cast<std::size_t>(result);
        }
    } while (result > 0 && written < partSize);
    mFlowed += written;
    keepWriting = !input.empty() || awaitsInput();
    if (result > 0)
        doNotWait();
    return result >= 0 || result == LIBSSH2_ERROR_EAGAIN || failToWrite(mConnection, result, error);
}

bool ChannelPump::refill(SSHErrorRef *error) {
    std::string_view piece;
    if (!input.empty())
        return true;
    if (!mInputFlow->read(&piece, error))
        return false;
    input.append(nullptr, piece);
    return true;
}

} // namespace SSHEngine
