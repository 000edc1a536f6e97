#include "Examples/Console/OutputQueue.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace {

constexpr std::size_t mostWaiting = 524'288; // bytes of each output
// Cancelling waits for this.
constexpr std::chrono::milliseconds longestWait(100);

bool isEmpty(const OutputQueue::Pieces &pieces) {
    return std::ranges::all_of(pieces, &std::string::empty);
}

} // namespace

std::optional<std::size_t> OutputQueue::take(SSHCommandStream stream,
                                             std::string_view piece) noexcept {
    const auto deadline = std::chrono::steady_clock::now() + longestWait;
    SSHPlatform::MutexLock lock(mMutex);
    std::string &waiting = mWaiting.at(static_cast<std::size_t>(stream));
    while (waiting.size() == mostWaiting)
        if (!mHasRoom.waitUntil(lock, deadline))
            return 0;
    if (isEmpty(mWaiting))
        mNotify();
    const std::size_t count = std::min(piece.size(), mostWaiting - waiting.size());
    waiting.append(piece.substr(0, count));
    return count;
}

OutputQueue::Pieces OutputQueue::collect() {
    const SSHPlatform::MutexLock lock(mMutex);
    mHasRoom.notifyOne();
    return std::exchange(mWaiting, {});
}
