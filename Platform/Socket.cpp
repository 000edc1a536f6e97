#include "Platform/Socket.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>

namespace SSHPlatform {

namespace {

short pollEvents(WaitFor directions) {
    const auto bits = static_cast<unsigned>(directions);
    const bool reading = (bits & static_cast<unsigned>(WaitFor::Reading)) != 0;
    const bool writing = (bits & static_cast<unsigned>(WaitFor::Writing)) != 0;
    return static_cast<short>((reading ? POLLIN : 0) | (writing ? POLLOUT : 0));
}

} // namespace

int waitForSocket(int socket, WaitFor directions, std::chrono::milliseconds timeout) {
    using Clock = std::chrono::steady_clock;
    const bool pauseOnly = directions == WaitFor::Nothing;
    if (socket < 0 && !pauseOnly) {
        errno = EBADF; // poll would ignore the descriptor and wait
        return -1;
    }
    const Clock::time_point deadline = Clock::now() + timeout;
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd entry{socket, pollEvents(directions), 0};
        const int ready =
            ::poll(&entry, pauseOnly ? 0 : 1,
                   static_cast<int>(std::max<std::chrono::milliseconds::rep>(0, left.count())));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready > 0 && (entry.revents & POLLNVAL) != 0) {
            errno = EBADF;
            return -1;
        }
        return ready;
    }
}

} // namespace SSHPlatform
