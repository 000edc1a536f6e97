// Hands a command's outputs to the sink that its host has given.
#pragma once

#include "Session/Connection.h"

#include <SSHSession/ByteBuffer.h>
#include <SSHSession/SSHCommandFlow.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace SSHEngine {

// Session queue only. While a sink is called, or has left something, the connection is held up by
// its host.
class OutputFlow {
  public:
    OutputFlow(Connection &connection, SSHOutputSink sink);
    OutputFlow(const OutputFlow &) = delete;
    OutputFlow &operator=(const OutputFlow &) = delete;

    // Hands on a piece, which the sink need not take whole. Only while it holds nothing of that
    // stream. Answers whether the run goes on; else the connection has been shut down.
    bool hand(SSHCommandStream stream, std::string_view piece);

    // The same for what the sink has left before.
    bool handHeld(SSHCommandStream stream);

    // Whether the sink has left something of a stream; of any.
    bool holds(SSHCommandStream stream) const { return !held(stream).empty(); }
    bool holdsAny() const {
        return holds(SSHCommandStream::Output) || holds(SSHCommandStream::ErrorOutput);
    }

    // Whether it has something left and did not take a byte when it was last called.
    bool isStuck() const { return mIsStuck && holdsAny(); }

  private:
    const SSHPlatform::ByteBuffer &held(SSHCommandStream stream) const {
        return mHeld.at(static_cast<std::size_t>(stream));
    }
    SSHPlatform::ByteBuffer &held(SSHCommandStream stream) {
        return mHeld.at(static_cast<std::size_t>(stream));
    }
    std::optional<std::size_t> call(SSHCommandStream stream, std::string_view piece);
    bool goOn();

    Connection &mConnection;
    const SSHOutputSink mSink;
    std::array<SSHPlatform::ByteBuffer, 2> mHeld;
    std::optional<Connection::HeldUp> mHeldUp;
    bool mIsStuck = false;
};

} // namespace SSHEngine
