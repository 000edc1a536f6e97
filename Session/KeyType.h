// What the wire encoding of a public key (RFC 4253, section 6.6) says of itself.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace SSHEngine {

// The name of the key's type, with which the encoding begins, behind its length; empty when there
// is no length.
inline std::string keyTypeIn(std::string_view key) {
    constexpr std::size_t lengthSize = 4;
    std::size_t length = 0;
    for (const char byte : key.substr(0, lengthSize))
        length = length << 8U | static_cast<unsigned char>(byte);
    return key.size() < lengthSize ? "" : std::string(key.substr(lengthSize, length));
}

// As ssh(1) calls the types.
inline std::string keyTypeForPeople(const std::string &keyType) {
    if (keyType.starts_with("ecdsa-sha2-"))
        return "ECDSA";
    if (keyType == "ssh-dss")
        return "DSA";
    return keyType == "ssh-rsa" ? "RSA" : keyType == "ssh-ed25519" ? "ED25519" : keyType;
}

} // namespace SSHEngine
