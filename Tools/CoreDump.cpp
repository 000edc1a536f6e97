#include "CoreDump.h"

#include <sys/resource.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

void forbidCoreDump() noexcept {
    const rlimit none = {0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
#ifdef __linux__
    ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0); // the limit does not hold where a program takes the dump
#endif
}
