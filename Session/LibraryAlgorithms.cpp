#include "Session/LibraryAlgorithms.h"

#include <algorithm>

namespace SSHEngine {

std::vector<std::string> libraryAlgorithms(LIBSSH2_SESSION *session, int method) {
    const char **names = nullptr;
    const int count = libssh2_session_supported_algs(session, method, &names);
    if (count < 1)
        return {};
    std::vector<std::string> algorithms(names, names + count);
    libssh2_free(session, static_cast<void *>(names));
    return algorithms;
}

// The library has ChaCha20 for connections alone.
bool canReadKeysOf(LIBSSH2_SESSION *session, const std::string &cipher) {
    const std::vector<std::string> known = libraryAlgorithms(session, LIBSSH2_METHOD_CRYPT_CS);
    return cipher.empty() || (std::find(known.begin(), known.end(), cipher) != known.end() &&
                              cipher != "chacha20-poly1305@openssh.com");
}

} // namespace SSHEngine
