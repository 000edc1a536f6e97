// Programming errors end the process with a report that names the condition and its place.
#pragma once

namespace SSHPlatform {

// Prints the report to standard error and aborts.
[[noreturn]] void assertionFailed(const char *condition, const char *function, const char *file,
                                  int line) noexcept;

} // namespace SSHPlatform
