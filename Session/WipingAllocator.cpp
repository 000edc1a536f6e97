#include "Session/WipingAllocator.h"

#include <SSHSession/Secret.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#if defined(__APPLE__)
#include <malloc/malloc.h>
#elif defined(__FreeBSD__)
#include <malloc_np.h>
#elif defined(__linux__) // with any C library
#include <malloc.h>
#endif

namespace SSHEngine {

namespace {

// At least as much as was asked for, all of it the block's. 0 where the system does not tell.
std::size_t sizeOf(void *block) {
#if defined(__APPLE__)
    return ::malloc_size(block);
#elif defined(__FreeBSD__) || defined(__linux__)
    return ::malloc_usable_size(block);
#else
    static_cast<void>(block);
    return 0;
#endif
}

void *allocate(std::size_t size, void ** /*abstract*/) {
    return size < tooMuchForLibrary ? std::malloc(size) : nullptr;
}

void release(void *block, void ** /*abstract*/) {
    if (!block)
        return;
    SSHPlatform::wipe(static_cast<char *>(block), sizeOf(block));
    std::free(block);
}

void *reallocate(void *block, std::size_t size, void **abstract) {
    const std::size_t before = block ? sizeOf(block) : 0;
    if (before == 0)
        return std::realloc(block, size);
    void *const moved = allocate(size, abstract);
    if (!moved)
        return nullptr;
    std::memcpy(moved, block, std::min(size, before));
    release(block, abstract);
    return moved;
}

} // namespace

LIBSSH2_SESSION *makeWipingSession(void *abstract) noexcept {
    return libssh2_session_init_ex(allocate, release, reallocate, abstract);
}

void *allocateForLibrary(std::size_t size) noexcept {
    return allocate(size, nullptr);
}

} // namespace SSHEngine
