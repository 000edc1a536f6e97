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
constexpr std::size_t mostWhileHeld = 4UL * 1024 * 1024; // twice the window

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
// is waited for. That is not for the server to answer for.
bool ChannelPump::wait(SSHErrorRef *error) {
    const WaitFor blocked = blockedDirections(mConnection.session());
    const WaitFor directions = mOutputFlow || mInputFlow ? blocked | WaitFor::Reading : blocked;
    const int source = input.empty() && awaitsInput() ? mInputFlow->descriptor() : -1;
    const int ready = hearsNothing() ? mConnection.wait(WaitFor::Nothing, pumpWait)
                                     : mConnection.watch.wait(directions, pumpWait, source);
    if (ready != -1)
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
    if (mOutputFlow)
        attend();
    if (!readOutput(&outputContinues, error) ||
        !readStream(ErrorOutput, &errorOutputContinues, error))
        return false;
    keepReading = (outputContinues || errorOutputContinues) &&
                  (libssh2_channel_eof(mChannel) == 0 || holdsOutput());
    return !mLoss || holdsOutput() || queued() > 0 || fail(error, [this] { return mLoss; });
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

// What has been fetched from the socket already.
bool ChannelPump::readPart(SSHCommandStream stream, bool *continues, SSHErrorRef *error) {
    *continues = true;
    if (!mOutputFlow->handHeld(stream))
        return false;
    if (mOutputFlow->holds(stream)) {
        mMayWait = mMayWait && mOutputFlow->isStuck();
        return true;
    }
    const Connection::Allowance nothing(mConnection, 0);
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

// Fetches what the server has sent, and answers what it asks; no window grows by that. Of a channel
// that the server has closed, and of a connection that has ended, everything is here: the library
// would go on to the end of the connection, and then give nothing of it. While the sink has no
// room, not even small packets make much of little output.
void ChannelPump::attend() {
    if (mHasClosed || mLoss)
        return;
    if (!holdsOutput())
        mAllowed = mostWhileHeld;
    const std::size_t before = queued();
    const Connection::Allowance allowance(mConnection, mAllowed);
    int code = libssh2_channel_wait_eof(mChannel);
    if (code == 0)
        code = libssh2_channel_wait_closed(mChannel);
    mAllowed = allowance.left();
    mHasClosed = code == 0;
    if (queued() > before)
        mConnection.noteProgress();
    if (code != 0 && code != LIBSSH2_ERROR_EAGAIN)
        failToRead(mConnection, Output, code, &mLoss);
    else if (mAllowed == 0 && !holdsOutput())
        doNotWait();
}

// Bytes that the library has for the sink.
std::size_t ChannelPump::queued() const {
    unsigned long available = 0;
    libssh2_channel_window_read_ex(mChannel, &available, nullptr);
    return available;
}

// Whether it makes no difference what the server says.
bool ChannelPump::hearsNothing() const {
    return holdsOutput() && (mHasClosed || mLoss || mAllowed == 0);
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
    if (mHasClosed || mLoss)
        return true;
    return mInputFlow ? writeFlow(error)
                      : SSHSession_libssh2::_writeToChannel(mConnection, mChannel, input,
                                                            &keepWriting, error);
}

// Never passes nothing to the library, which would make a packet of it.
bool ChannelPump::writeFlow(SSHErrorRef *error) {
    ssize_t result = 0;
    std::size_t written = 0;
    std::optional<Connection::Allowance> nothing;
    if (mOutputFlow)
        nothing.emplace(mConnection, 0);
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
