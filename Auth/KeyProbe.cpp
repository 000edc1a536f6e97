#include "Auth/KeyProbe.h"

namespace SSHEngine {

namespace {

// Signs nothing, and tells by the boolean at `*abstract` that it was asked to.
int declineToSign(LIBSSH2_SESSION * /*session*/, unsigned char ** /*signature*/,
                  std::size_t * /*signatureSize*/, const unsigned char * /*data*/,
                  std::size_t /*dataSize*/, void **abstract) {
    *static_cast<bool *>(*abstract) = true;
    return -1;
}

} // namespace

int probeKey(LIBSSH2_SESSION *session, const char *user, std::string_view blob, bool &isWanted) {
    isWanted = false;
    void *abstract = &isWanted;
    return libssh2_userauth_publickey(session, user,
                                      reinterpret_cast<const unsigned char *>(blob.data()),
                                      blob.size(), declineToSign, &abstract);
}

} // namespace SSHEngine
