#include "Session/LibraryAlgorithms.h"

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

} // namespace SSHEngine
