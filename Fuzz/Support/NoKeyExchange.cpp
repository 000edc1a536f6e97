#include "Fuzz/Support/NoKeyExchange.h"

#include <SSHSession/Base64.h>

#include <libssh2.h>

#include <string_view>

namespace {

// A key on the curve of 256 bits, in the encoding of RFC 5656, section 3.1. Nobody looks whether
// the point is on the curve.
const std::string key = [] {
    using namespace std::string_view_literals;
    return std::string("\0\0\0\x13"
                       "ecdsa-sha2-nistp256"
                       "\0\0\0\x08"
                       "nistp256"
                       "\0\0\0\x41\x04"sv) +
           std::string(64, 'k');
}();

} // namespace

const std::string playedHostKey = "ecdsa-sha2-nistp256 " + SSHPlatform::base64(key);

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl*): the linker's names
extern "C" {

int __real__libssh2_kex_exchange(LIBSSH2_SESSION *session, int isRenewal, void *state);
int __wrap__libssh2_kex_exchange(LIBSSH2_SESSION *session, int isRenewal, void *state) {
    return isRenewal == 0 ? 0 : __real__libssh2_kex_exchange(session, isRenewal, state);
}

const char *__wrap_libssh2_session_hostkey(LIBSSH2_SESSION * /*session*/, std::size_t *length,
                                           int *type) {
    *length = key.size();
    *type = LIBSSH2_HOSTKEY_TYPE_ECDSA_256;
    return key.data();
}
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl*)
