// The memory of the library's sessions: each block is overwritten when it is freed and when it
// moves. The library copies passwords into packets, keeps what was sent in its compression window,
// and reads key files into memory of its own.
//
// The blocks are the C library's, which is asked for their size, and carry nothing of their own:
// the library itself takes some of them for malloc(3)'s and frees them so. On systems that do not
// tell a block's size nothing is overwritten.
#pragma once

#include <libssh2.h>

#include <cstddef>

namespace SSHEngine {

// Such sessions get no block of this size: the library gives up what it would need one for.
inline constexpr std::size_t tooMuchForLibrary = 1UL << 30;

// Answers null when there is no memory, as all of these do.
LIBSSH2_SESSION *makeWipingSession(void *abstract) noexcept;

// For what is handed over to such a session, which frees it.
void *allocateForLibrary(std::size_t size) noexcept;

} // namespace SSHEngine
