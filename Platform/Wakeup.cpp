#include "Platform/Wakeup.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>

namespace SSHPlatform {

Wakeup::Wakeup() noexcept {
    std::array<int, 2> ends = {-1, -1};
#if defined(__APPLE__)
    if (::pipe(ends.data()) != 0)
        return;
    for (const int end : ends) {
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
#else
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        return;
#endif
    mReader = ends[0];
    mWriter = ends[1];
}

Wakeup::~Wakeup() {
    if (mReader < 0)
        return;
    ::close(mReader);
    ::close(mWriter);
}

void Wakeup::signal() const noexcept {
    const char anything = 0;
    // A full pipe says the same already.
    static_cast<void>(!::write(mWriter, &anything, 1));
}

} // namespace SSHPlatform
