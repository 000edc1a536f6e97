#include "Platform/DetachedThread.h"

#include <csignal>
#include <thread>
#include <utility>

namespace SSHPlatform {

namespace {

// A new thread begins with the signals blocked that are blocked here.
class BlockedSignals {
  public:
    BlockedSignals() {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &mBefore);
    }
    ~BlockedSignals() { ::pthread_sigmask(SIG_SETMASK, &mBefore, nullptr); }
    BlockedSignals(const BlockedSignals &) = delete;
    BlockedSignals &operator=(const BlockedSignals &) = delete;

  private:
    sigset_t mBefore{};
};

} // namespace

void startDetachedThread(std::function<void()> work) {
    const BlockedSignals blocked;
    std::thread(std::move(work)).detach();
}

} // namespace SSHPlatform
