#include "Platform/Socket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <span>

namespace SSHPlatform {

namespace {

using Clock = std::chrono::steady_clock;

short pollEvents(WaitFor directions) {
    const auto bits = static_cast<unsigned>(directions);
    const bool reading = (bits & static_cast<unsigned>(WaitFor::Reading)) != 0;
    const bool writing = (bits & static_cast<unsigned>(WaitFor::Writing)) != 0;
    return static_cast<short>((reading ? POLLIN : 0) | (writing ? POLLOUT : 0));
}

int pollTime(Clock::duration left) {
    using Milliseconds = std::chrono::milliseconds;
    constexpr auto longest = static_cast<Milliseconds::rep>(std::numeric_limits<int>::max());
    return static_cast<int>(
        std::clamp<Milliseconds::rep>(std::chrono::ceil<Milliseconds>(left).count(), 0, longest));
}

// Goes on after a signal.
int pollUntil(Clock::time_point deadline, std::span<pollfd> entries) {
    while (true) {
        const int ready = ::poll(entries.data(), entries.size(), pollTime(deadline - Clock::now()));
        if (ready >= 0 || errno != EINTR)
            return ready;
    }
}

int failWith(int number) {
    errno = number;
    return -1;
}

} // namespace

int openSocket(int family) {
#ifdef SOCK_CLOEXEC
    return ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
#else
    const int descriptor = ::socket(family, SOCK_STREAM, 0);
    if (descriptor != -1)
        ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    return descriptor;
#endif
}

int waitForSocket(int socket, WaitFor directions, std::chrono::milliseconds timeout, int wakeup,
                  int source) {
    const bool pauseOnly = directions == WaitFor::Nothing;
    if (socket < 0 && !pauseOnly)
        return failWith(EBADF); // poll would ignore the descriptor and wait
    // poll ignores negative descriptors.
    std::array<pollfd, 3> entries = {{{pauseOnly ? -1 : socket, pollEvents(directions), 0},
                                      {wakeup, POLLIN, 0},
                                      {source, POLLIN, 0}}};
    const int ready = pollUntil(Clock::now() + timeout, entries);
    if (ready > 0 && entries[1].revents != 0)
        return failWith(ECANCELED);
    if (ready > 0 && (entries[0].revents & POLLNVAL) != 0)
        return failWith(EBADF);
    return ready;
}

int waitForAny(const std::vector<int> &sockets, std::chrono::milliseconds timeout, int wakeup) {
    std::vector<pollfd> entries;
    entries.reserve(sockets.size() + 1);
    for (const int socket : sockets)
        entries.push_back({socket, POLLOUT, 0});
    entries.push_back({wakeup, POLLIN, 0});
    const int ready = pollUntil(Clock::now() + timeout, entries);
    if (ready <= 0)
        return ready == 0 ? failWith(ETIMEDOUT) : -1;
    if (entries.back().revents != 0)
        return failWith(ECANCELED);
    const auto first =
        std::ranges::find_if(entries, [](const pollfd &e) { return e.revents != 0; });
    return static_cast<int>(first - entries.begin());
}

} // namespace SSHPlatform
