// What the library can do, by the names of SSH.
#pragma once

#include <SSHSession/SSHFacts.h>

#include <libssh2.h>

#include <string>
#include <vector>

namespace SSHEngine {

// For a method of libssh2_session_method_pref(3). Does not use the connection.
std::vector<std::string> libraryAlgorithms(LIBSSH2_SESSION *session, int method);

// Of every kind, in the library's order of preference.
SSHAlgorithms allLibraryAlgorithms(LIBSSH2_SESSION *session);

// Whether key files that are encrypted so can be read; those of no cipher can.
bool canReadKeysOf(LIBSSH2_SESSION *session, const std::string &cipher);

} // namespace SSHEngine
