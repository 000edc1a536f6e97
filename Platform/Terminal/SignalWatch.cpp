#include "Platform/Terminal/SignalWatch.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace SSHPlatform {

namespace {

// All that a handler can reach.
std::array<volatile std::sig_atomic_t, NSIG> seen;
volatile std::sig_atomic_t wakeDescriptor = -1;

volatile std::sig_atomic_t &seenOf(int signal) {
    return *(seen.data() + signal);
}

void note(int signal) {
    const int number = errno;
    seenOf(signal) = 1;
    [[maybe_unused]] const ssize_t written = ::write(wakeDescriptor, "", 1); // full is as good
    errno = number;
}

bool isSeen(int signal) {
    return seenOf(signal) != 0;
}

} // namespace

SignalWatch::SignalWatch() {
    std::fill(seen.begin(), seen.end(), 0);
    wakeDescriptor = mPipe[1];
    struct sigaction action {};
    action.sa_handler = note; // and no SA_RESTART
    ::sigemptyset(&action.sa_mask);
    for (Watched &watched : mWatched) {
        ::sigaction(watched.signal, nullptr, &watched.before);
        if (watched.before.sa_handler != SIG_IGN)
            ::sigaction(watched.signal, &action, nullptr);
    }
}

SignalWatch::~SignalWatch() {
    for (const Watched &watched : mWatched)
        ::sigaction(watched.signal, &watched.before, nullptr);
    for (const int end : mPipe)
        ::close(end);
    for (const Watched &watched : mWatched)
        if (isSeen(watched.signal))
            ::raise(watched.signal);
}

bool SignalWatch::hasSeenAny() const {
    return std::any_of(mWatched.begin(), mWatched.end(),
                       [](const Watched &watched) { return isSeen(watched.signal); });
}

bool SignalWatch::hasSeenStop() const {
    return isSeen(SIGTSTP) || isSeen(SIGTTIN) || isSeen(SIGTTOU);
}

} // namespace SSHPlatform
