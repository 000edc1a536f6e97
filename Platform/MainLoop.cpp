#include <SSHSession/MainLoop.h>

namespace SSHPlatform {

RepeatingTimer::~RepeatingTimer() = default;
MainLoop::~MainLoop() = default;

} // namespace SSHPlatform
