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

SSHAlgorithms allLibraryAlgorithms(LIBSSH2_SESSION *session) {
    SSHAlgorithms all = {.keyExchange = libraryAlgorithms(session, LIBSSH2_METHOD_KEX),
                         .hostKey = libraryAlgorithms(session, LIBSSH2_METHOD_HOSTKEY),
                         .cipherToServer = libraryAlgorithms(session, LIBSSH2_METHOD_CRYPT_CS),
                         .cipherToClient = {},
                         .macToServer = libraryAlgorithms(session, LIBSSH2_METHOD_MAC_CS),
                         .macToClient = {},
                         .compressionToServer = libraryAlgorithms(session, LIBSSH2_METHOD_COMP_CS),
                         .compressionToClient = {}};
    all.cipherToClient = all.cipherToServer; // it tells no difference
    all.macToClient = all.macToServer;
    all.compressionToClient = all.compressionToServer;
    return all;
}

// The library has ChaCha20 for connections alone.
bool canReadKeysOf(LIBSSH2_SESSION *session, const std::string &cipher) {
    const std::vector<std::string> known = libraryAlgorithms(session, LIBSSH2_METHOD_CRYPT_CS);
    return cipher.empty() || (std::find(known.begin(), known.end(), cipher) != known.end() &&
                              cipher != "chacha20-poly1305@openssh.com");
}

} // namespace SSHEngine
