// Waiting for a socket, with select(2)'s answers but without its limit on descriptor numbers.
#pragma once

#include <chrono>
#include <vector>

namespace SSHPlatform {

// For waits that something else ends.
inline constexpr std::chrono::hours forever(24 * 365);

enum class WaitFor : unsigned { Nothing = 0, Reading = 1, Writing = 2, Either = 3 };

constexpr WaitFor operator|(WaitFor a, WaitFor b) {
    return static_cast<WaitFor>(static_cast<unsigned>(a) | static_cast<unsigned>(b));
}

// A stream socket that no program inherits which another thread starts. Answers as socket(2).
int openSocket(int family);

// Waits until the socket is ready in one of the directions asked for. Answers a positive number
// when it is, 0 after the time-out, -1 with errno when waiting failed (EBADF for a bad descriptor).
// With `Nothing` this is a plain pause that never looks at the socket. A wait that a signal
// interrupts goes on for the time that is left; one whose `wakeup` (a descriptor, or -1 for none)
// becomes readable fails at once with ECANCELED. One that has a `source` (a descriptor of any kind,
// or -1) ends as well when that can be read, or was never open.
int waitForSocket(int socket, WaitFor directions, std::chrono::milliseconds timeout,
                  int wakeup = -1, int source = -1);

// Waits until one of the sockets can be written to, or has failed. Answers its position, or -1 with
// errno: ETIMEDOUT after the time-out, else as above.
int waitForAny(const std::vector<int> &sockets, std::chrono::milliseconds timeout, int wakeup = -1);

} // namespace SSHPlatform
