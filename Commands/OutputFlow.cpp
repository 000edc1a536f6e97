#include "Commands/OutputFlow.h"

#include "Session/Connection.h"

#include <algorithm>
#include <utility>

namespace SSHEngine {

OutputFlow::OutputFlow(Connection &connection, SSHOutputSink sink)
    : mConnection(connection), mSink(std::move(sink)) {}

bool OutputFlow::hand(SSHCommandStream stream, std::string_view piece) {
    const auto taken = call(stream, piece);
    if (!taken)
        return false;
    held(stream).append(piece.substr(*taken));
    return goOn();
}

bool OutputFlow::handHeld(SSHCommandStream stream) {
    if (!holds(stream))
        return true;
    const auto taken = call(stream, held(stream).view());
    if (!taken)
        return false;
    held(stream).removeFromFront(*taken);
    return goOn();
}

std::optional<std::size_t> OutputFlow::call(SSHCommandStream stream, std::string_view piece) {
    if (!mHeldUp)
        mHeldUp.emplace(mConnection);
    const auto taken = mSink(stream, piece);
    if (!taken) {
        mConnection.shutDown(Ending::Cancelled);
        return std::nullopt;
    }
    mIsStuck = *taken == 0;
    return std::min(*taken, piece.size());
}

bool OutputFlow::goOn() {
    if (!holdsAny())
        mHeldUp.reset();
    return true;
}

} // namespace SSHEngine
