#include "Session/Negotiation.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace SSHEngine {

namespace {

using Names = std::vector<std::string>;

// The client's first that the server has; empty where there is none.
std::string common(const Names &client, const Names &server) {
    const auto found = std::find_if(client.begin(), client.end(), [&](const std::string &name) {
        return std::find(server.begin(), server.end(), name) != server.end();
    });
    return found == client.end() ? "" : *found;
}

bool needsMAC(std::string_view cipher) {
    return !cipher.starts_with("chacha20-poly1305") &&
           cipher.find("-gcm") == std::string_view::npos;
}

} // namespace

std::optional<SSHErrorCause> nothingInCommon(const SSHAlgorithms &client,
                                             const SSHAlgorithms &server) {
    const auto lacks = [&](Names SSHAlgorithms::*kind) {
        return !(client.*kind).empty() && common(client.*kind, server.*kind).empty();
    };
    const auto lacksMAC = [&](Names SSHAlgorithms::*cipher, Names SSHAlgorithms::*mac) {
        return lacks(mac) && needsMAC(common(client.*cipher, server.*cipher));
    };
    using enum SSHErrorCause;
    using Kinds = SSHAlgorithms;
    if (lacks(&Kinds::keyExchange))
        return NoCommonKeyExchange;
    if (lacks(&Kinds::hostKey))
        return NoCommonHostKey;
    if (lacks(&Kinds::cipherToServer) || lacks(&Kinds::cipherToClient))
        return NoCommonCipher;
    if (lacksMAC(&Kinds::cipherToServer, &Kinds::macToServer) ||
        lacksMAC(&Kinds::cipherToClient, &Kinds::macToClient))
        return NoCommonMAC;
    if (lacks(&Kinds::compressionToServer) || lacks(&Kinds::compressionToClient))
        return NoCommonCompression;
    return std::nullopt;
}

} // namespace SSHEngine
