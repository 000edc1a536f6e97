// Which thread is the process's main thread, whoever loaded this library and when.
#pragma once

namespace SSHPlatform {

bool isProcessMainThread() noexcept;

} // namespace SSHPlatform
