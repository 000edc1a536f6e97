#include "Session/KeyEncoding.h"

#include "Platform/SHA256.h"

#include <SSHSession/Base64.h>

#include <cstdint>

namespace SSHEngine {

namespace {

using namespace std::string_view_literals;

std::optional<unsigned> base64Digit(char character) {
    constexpr auto alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"sv;
    const auto digit = alphabet.find(character);
    return digit == std::string_view::npos ? std::nullopt
                                           : std::optional(static_cast<unsigned>(digit));
}

} // namespace

std::string decodedBase64(std::string_view base64) {
    std::string bytes;
    bytes.reserve(base64.size()); // never grows, which would leave a part of a secret behind
    std::uint32_t bits = 0;
    unsigned count = 0;
    for (const char character : base64) {
        if (" \t\r\n"sv.find(character) != std::string_view::npos)
            continue;
        const std::optional<unsigned> digit = base64Digit(character);
        if (!digit)
            break;
        bits = bits << 6U | *digit;
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count & 0xFFU);
        }
    }
    return bytes;
}

std::optional<std::uint32_t> takeNumber(std::string_view &bytes) {
    constexpr std::size_t size = 4;
    if (bytes.size() < size)
        return std::nullopt;
    std::uint32_t number = 0;
    for (const char byte : bytes.substr(0, size))
        number = number << 8U | static_cast<unsigned char>(byte);
    bytes.remove_prefix(size);
    return number;
}

std::optional<std::string_view> takeString(std::string_view &bytes) {
    const std::optional<std::uint32_t> length = takeNumber(bytes);
    if (!length || *length > bytes.size())
        return std::nullopt;
    const std::string_view taken = bytes.substr(0, *length);
    bytes.remove_prefix(*length);
    return taken;
}

std::string keyFingerprint(std::string_view key) {
    const std::string text = SSHPlatform::base64(SSHPlatform::sha256(key));
    return "SHA256:" + text.substr(0, text.find('='));
}

} // namespace SSHEngine
