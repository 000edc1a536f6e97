// A pipe between threads, or between a signal handler and its process.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <array>

namespace SSHPlatform {

// The ends to read and to write: never waited for, and inherited by no program that another thread
// starts. Both -1 when the process is out of descriptors.
inline std::array<int, 2> openPipe() noexcept {
    std::array<int, 2> ends = {-1, -1};
#if defined(__APPLE__) // which has no pipe2(2)
    if (::pipe(ends.data()) == 0)
        for (const int end : ends) {
            ::fcntl(end, F_SETFD, FD_CLOEXEC);
            ::fcntl(end, F_SETFL, O_NONBLOCK);
        }
    return ends;
#else
    return ::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) == 0 ? ends : std::array<int, 2>{-1, -1};
#endif
}

} // namespace SSHPlatform
