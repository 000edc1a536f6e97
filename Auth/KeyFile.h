// What key files say of themselves before anybody opens them with a pass phrase.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace SSHEngine {

// A key as the server is told of it (RFC 4253, section 6.6), or a certificate in its place.
struct PublicKey {
    std::string type; // "ssh-ed25519"
    std::string blob;
};

// From a line such as ssh-keygen(1) writes: "type base64 comment". None for anything else.
std::optional<PublicKey> publicKeyInLine(std::string_view line);

struct PrivateKey {
    bool isEncrypted = false;
    // What it is encrypted with, in OpenSSH's own format; else empty.
    std::string cipher;
    // OpenSSH's own format names it in the clear.
    std::optional<PublicKey> publicKey;
};

// Of OpenSSH's own format (PROTOCOL.key), PEM (RFC 1421) and PKCS#8 (RFC 5958). None when it is no
// private key. What is decoded of the key is overwritten again.
std::optional<PrivateKey> privateKeyIn(std::string_view content);

// Whether a hardware token holds the secret part.
bool isOnToken(const PublicKey &key);

} // namespace SSHEngine
