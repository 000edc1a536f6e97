#include "Platform/Wakeup.h"

#include "Platform/Pipe.h"

#include <unistd.h>

namespace SSHPlatform {

Wakeup::Wakeup() noexcept {
    const auto [reader, writer] = openPipe();
    mReader = reader;
    mWriter = writer;
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
