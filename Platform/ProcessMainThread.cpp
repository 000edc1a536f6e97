#include "Platform/ProcessMainThread.h"

#if defined(__linux__)
#include <sys/syscall.h>
#include <unistd.h>
#elif defined(__APPLE__) || defined(__OpenBSD__) || defined(__FreeBSD__) || defined(__DragonFly__)
#include <pthread.h>
#if !defined(__APPLE__)
#include <pthread_np.h>
#endif
#else
#include <thread>
#endif

namespace SSHPlatform {

#if defined(__linux__)

bool isProcessMainThread() noexcept {
    return ::syscall(SYS_gettid) == ::getpid();
}

#elif defined(__APPLE__) || defined(__OpenBSD__) || defined(__FreeBSD__) || defined(__DragonFly__)

bool isProcessMainThread() noexcept {
    return ::pthread_main_np() != 0;
}

#else

namespace {
// Static objects are made by the thread that loads the library, as a rule the main thread.
const std::thread::id loadingThread = std::this_thread::get_id();
} // namespace

bool isProcessMainThread() noexcept {
    return std::this_thread::get_id() == loadingThread;
}

#endif

} // namespace SSHPlatform
