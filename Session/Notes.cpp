#include "Session/Notes.h"

namespace SSHEngine {

void Notes::note(const std::function<void(SSHFacts &)> &change) {
    const SSHPlatform::MutexLock lock(mMutex);
    change(mFacts);
}

SSHFacts Notes::facts() const {
    const SSHPlatform::MutexLock lock(mMutex);
    return mFacts;
}

} // namespace SSHEngine
