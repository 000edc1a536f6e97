// What a session has seen since its last `start` began. Outlives the connection that it speaks of;
// any thread may read it while the stages write.
#pragma once

#include <SSHSession/Mutex.h>
#include <SSHSession/SSHFacts.h>

#include <functional>

namespace SSHEngine {

class Notes {
  public:
    explicit Notes(SSHFacts facts) : mFacts(std::move(facts)) {}

    // `change` must call nothing that takes a lock.
    void note(const std::function<void(SSHFacts &)> &change);
    // The same, without a closure, for each piece of a command's output.
    void noteOutput(std::size_t bytes);
    SSHFacts facts() const;

  private:
    mutable SSHPlatform::Mutex mMutex;
    SSHFacts mFacts SSHSESSION_GUARDED_BY(mMutex);
};

} // namespace SSHEngine
