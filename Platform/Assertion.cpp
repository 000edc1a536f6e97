#include "Platform/Assertion.h"

#include <cstdio>
#include <cstdlib>

namespace SSHPlatform {

void assertionFailed(const char *condition, const char *function, const char *file,
                     int line) noexcept {
    std::fprintf(stderr, "Assertion failed: (%s), function %s, file %s, line %d.\n", condition,
                 function, file, line);
    std::abort();
}

} // namespace SSHPlatform
