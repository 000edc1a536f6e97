#include "Session/Notes.h"

namespace SSHEngine {

void Notes::note(const std::function<void(SSHFacts &)> &change) {
    const SSHPlatform::MutexLock lock(mMutex);
    change(mFacts);
}

void Notes::noteOutput(std::size_t bytes) {
    const SSHPlatform::MutexLock lock(mMutex);
    mFacts.command.outputBytes += bytes;
    mFacts.command.lastActivity = std::chrono::steady_clock::now();
}

SSHFacts Notes::facts() const {
    const SSHPlatform::MutexLock lock(mMutex);
    return mFacts;
}

} // namespace SSHEngine
