// Registers a callback with a session of the library, whose two versions differ in how that is
// done.
#pragma once

#include <libssh2.h>

namespace SSHEngine {

template <typename Function>
void setLibraryCallback(LIBSSH2_SESSION *session, int kind, Function *callback) {
#if LIBSSH2_VERSION_NUM >= 0x010b01
    libssh2_session_callback_set2(session, kind, reinterpret_cast<libssh2_cb_generic *>(callback));
#else
    libssh2_session_callback_set(session, kind, reinterpret_cast<void *>(callback));
#endif
}

} // namespace SSHEngine
