#include "Platform/Wakeup.h"

#include "Platform/Pipe.h"

#include <unistd.h>

namespace SSHPlatform {

Wakeup::Wakeup() noexcept : mEnds(openPipe()) {}

Wakeup::~Wakeup() {
    if (mEnds[0] < 0)
        return;
    for (const int end : mEnds)
        ::close(end);
}

void Wakeup::signal() const noexcept {
    const char anything = 0;
    // A full pipe says the same already.
    static_cast<void>(!::write(mEnds[1], &anything, 1));
}

} // namespace SSHPlatform
