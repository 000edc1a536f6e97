// What the library can do, by the names of SSH.
#pragma once

#include <libssh2.h>

#include <string>
#include <vector>

namespace SSHEngine {

// For a method of libssh2_session_method_pref(3). Does not use the connection.
std::vector<std::string> libraryAlgorithms(LIBSSH2_SESSION *session, int method);

} // namespace SSHEngine
