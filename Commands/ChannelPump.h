// Moves bytes into a channel, from a queue or from where a host has them flow, and from the channel
// into two buffers or a host's sink, a step at a time.
#pragma once

#include "Commands/InputFlow.h"
#include "Commands/InputQueue.h"
#include "Commands/OutputFlow.h"

#include <SSHSession/ByteBuffer.h>
#include <SSHSession/SSHError.h>

#include <libssh2.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace SSHEngine {

class Connection;

// Session queue only, with the session in non-blocking mode.
class ChannelPump {
  public:
    // Where there is a sink, no step reads more than a part of what a fast server has to send.
    ChannelPump(Connection &connection, LIBSSH2_CHANNEL *channel, const SSHOutputSink &sink);

    // One step: waits for the server for up to 100 ms, unless there is something to be done without
    // it; drains both streams; writes pending input. On failure the flags below are undefined.
    bool step(SSHErrorRef *error);

    // Takes what has arrived, without waiting.
    bool read(SSHErrorRef *error);

    // The same for standard output alone. Whether there may be more.
    bool readOutput(bool *continues, SSHErrorRef *error);

    // How many bytes of both streams have come so far.
    std::size_t arrived() const { return mArrived; }

    // Bytes for the command's standard input. The next step writes before it waits.
    void queueInput(std::shared_ptr<const void> owner, std::string_view bytes);
    void doNotWait() { mMayWait = false; }

    // From here on the outputs go to the sink, where there is one: first what the buffers hold, of
    // which as much stays as is noted of a command.
    bool beginOutputFlow();
    bool flowsOut() const { return mOutputFlow.has_value(); }
    // Whether some of it waits for the sink.
    bool holdsOutput() const { return mOutputFlow && mOutputFlow->holdsAny(); }

    // From here on the input comes from there, behind what is queued.
    void beginInputFlow(int descriptor, SSHInputSource source);
    // Of it, how much has been handed to the connection, and whether there is more.
    std::size_t flowed() const { return mFlowed; }
    bool awaitsInput() const { return mInputFlow && !mInputFlow->hasEnded(); }

    bool keepReading = true;
    bool keepWriting = true;
    InputQueue input; // still to be written
    const std::shared_ptr<SSHPlatform::ByteBuffer> output =
        std::make_shared<SSHPlatform::ByteBuffer>();
    const std::shared_ptr<SSHPlatform::ByteBuffer> errorOutput =
        std::make_shared<SSHPlatform::ByteBuffer>();

  private:
    bool wait(SSHErrorRef *error);
    bool readStream(SSHCommandStream stream, bool *continues, SSHErrorRef *error);
    bool readPart(SSHCommandStream stream, bool *continues, SSHErrorRef *error);
    bool take(SSHCommandStream stream, std::string_view piece);
    void keepForNotes(SSHCommandStream stream, std::string_view piece) const;
    void attend();
    std::size_t queued() const;
    bool hearsNothing() const;
    const std::shared_ptr<SSHPlatform::ByteBuffer> &bufferOf(SSHCommandStream stream) const {
        return stream == SSHCommandStream::Output ? output : errorOutput;
    }
    bool write(SSHErrorRef *error);
    bool writeFlow(SSHErrorRef *error);
    bool refill(SSHErrorRef *error);

    Connection &mConnection;
    LIBSSH2_CHANNEL *const mChannel;
    bool mMayWait = true;
    std::size_t mArrived = 0;
    std::optional<OutputFlow> mOutputFlow;
    std::vector<char> mPiece; // where there is a sink
    bool mIsFlowing = false;
    bool mHasClosed = false;  // the server, of what flows out
    SSHErrorRef mLoss;        // of the connection, which is told once the sink has everything
    std::size_t mAllowed = 0; // of the socket's bytes, while output is held
    std::optional<InputFlow> mInputFlow;
    std::size_t mFlowed = 0;
};

} // namespace SSHEngine
