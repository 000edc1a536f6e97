// What the key files on this computer are, whether a session tries them or not.
#pragma once

#include <SSHSession/SSHFacts.h>

#include <libssh2.h>

#include <optional>
#include <string>
#include <vector>

namespace SSHEngine {

// The files whose keys the host or the user has named, in the order in which they are tried.
std::vector<std::string> givenKeyFiles(const std::optional<std::string> &first,
                                       const SSHSessionOptions &options);

// Of the given files first, as they were given, and then of the standard ones. Never blocks, and
// leaves `isInAgent` to others. `library` serves to know what can be read.
std::vector<SSHKeyFileFacts> keyFileFacts(const std::vector<std::string> &given,
                                          const SSHSessionOptions &options,
                                          LIBSSH2_SESSION *library);

} // namespace SSHEngine
