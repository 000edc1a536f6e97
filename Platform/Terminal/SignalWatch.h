// Signals that come while a terminal is not as its user left it.
#pragma once

#include "Platform/Pipe.h"

#include <array>
#include <csignal>

namespace SSHPlatform {

// While it lives, the signals that end or stop a process are only noted, whatever thread they
// reach; those that were ignored still are. What came is sent again when it goes, to the handlers
// of before: so whoever sets a terminal puts it back in between. One at a time in the process.
class SignalWatch {
  public:
    SignalWatch();
    SignalWatch(const SignalWatch &) = delete;
    SignalWatch &operator=(const SignalWatch &) = delete;
    ~SignalWatch();

    // Readable once a signal has come, for poll(2).
    int descriptor() const { return mPipe[0]; }

    bool hasSeenAny() const;

    // Whether one came that stops a process, which goes on later.
    bool hasSeenStop() const;

  private:
    struct Watched {
        int signal;
        struct sigaction before;
    };

    const std::array<int, 2> mPipe = openPipe();
    std::array<Watched, 9> mWatched{{{SIGALRM, {}},
                                     {SIGHUP, {}},
                                     {SIGINT, {}},
                                     {SIGPIPE, {}},
                                     {SIGQUIT, {}},
                                     {SIGTERM, {}},
                                     {SIGTSTP, {}},
                                     {SIGTTIN, {}},
                                     {SIGTTOU, {}}}};
};

} // namespace SSHPlatform
