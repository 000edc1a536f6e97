// Moves bytes from one queue into a channel, and from that into two buffers, a step at a time.
#pragma once

#include "Commands/InputQueue.h"

#include <SSHSession/ByteBuffer.h>
#include <SSHSession/SSHError.h>

#include <libssh2.h>

#include <cstddef>
#include <memory>

namespace SSHEngine {

class Connection;

// Session queue only, with the session in non-blocking mode.
class ChannelPump {
  public:
    ChannelPump(Connection &connection, LIBSSH2_CHANNEL *channel)
        : mConnection(connection), mChannel(channel) {}

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

    bool keepReading = true;
    bool keepWriting = true;
    InputQueue input; // still to be written
    const std::shared_ptr<SSHPlatform::ByteBuffer> output =
        std::make_shared<SSHPlatform::ByteBuffer>();
    const std::shared_ptr<SSHPlatform::ByteBuffer> errorOutput =
        std::make_shared<SSHPlatform::ByteBuffer>();

  private:
    bool wait(SSHErrorRef *error);
    bool readStream(SSHPlatform::ByteBuffer &data, bool isStderr, bool *continues,
                    SSHErrorRef *error);

    Connection &mConnection;
    LIBSSH2_CHANNEL *const mChannel;
    bool mMayWait = true;
    std::size_t mArrived = 0;
};

} // namespace SSHEngine
