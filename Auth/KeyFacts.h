// What the key files on this computer are, whether a session tries them or not.
#pragma once

#include <SSHSession/SSHFacts.h>

#include <libssh2.h>

#include <optional>
#include <string>
#include <vector>

namespace SSHEngine {

// Of the given file first, as it was given, and then of the standard ones. Never blocks, and leaves
// `isInAgent` to others. `library` serves to know what can be read.
std::vector<SSHKeyFileFacts> keyFileFacts(const std::optional<std::string> &given,
                                          const SSHSessionOptions &options,
                                          LIBSSH2_SESSION *library);

} // namespace SSHEngine
