// Ends the waits of other threads, now and from now on.
#pragma once

#include <array>

namespace SSHPlatform {

class Wakeup {
  public:
    Wakeup() noexcept;
    ~Wakeup();
    Wakeup(const Wakeup &) = delete;
    Wakeup &operator=(const Wakeup &) = delete;

    // Makes `descriptor` readable for good. Any thread, any number of times.
    void signal() const noexcept;

    // To be waited for beside another one, never to be read. -1 when the process is out of
    // descriptors: then nothing wakes the wait.
    int descriptor() const noexcept { return mEnds[0]; }

  private:
    const std::array<int, 2> mEnds;
};

} // namespace SSHPlatform
