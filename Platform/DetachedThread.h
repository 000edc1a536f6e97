// A thread of the library's own, which nobody waits for.
#pragma once

#include <functional>

namespace SSHPlatform {

// Runs `work` on a new thread, to which no signal is delivered: the host's handlers run on threads
// that the host knows. Throws std::system_error when the system has no thread to give.
void startDetachedThread(std::function<void()> work);

} // namespace SSHPlatform
