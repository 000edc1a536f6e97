#include "Identity/HostKeyCheck.h"

#include <array>

int knownHostKeyBits(std::int32_t hostKeyType) {
    static constexpr std::array<int, 4> bits = {
        0,
        LIBSSH2_KNOWNHOST_KEY_SSHRSA,
        LIBSSH2_KNOWNHOST_KEY_SSHDSS,
        LIBSSH2_KNOWNHOST_KEY_ECDSA_256,
    };
    const auto index = static_cast<std::uint32_t>(hostKeyType);
    return index < bits.size() ? bits.at(index) : 0;
}
