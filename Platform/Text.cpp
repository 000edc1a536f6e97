#include "Platform/Text.h"

#include <utf8.h>

#include <cstdint>
#include <iterator>
#include <system_error>

namespace SSHPlatform {

std::string textOrNull(const std::optional<std::string> &text) {
    return text ? *text : std::string(nullText);
}

std::string decodedUTF8(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    utf8::replace_invalid(bytes.begin(), bytes.end(), std::back_inserter(text));
    return text;
}

bool isUTF8(std::string_view bytes) {
    return utf8::is_valid(bytes.begin(), bytes.end());
}

std::string base64(std::string_view bytes) {
    static constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::string_view group = bytes.substr(i, 3);
        std::uint32_t bits = 0;
        for (std::size_t k = 0; k < 3; ++k)
            bits = bits << 8 | (k < group.size() ? static_cast<unsigned char>(group[k]) : 0U);
        for (std::size_t k = 0; k < 4; ++k)
            text += k <= group.size() ? alphabet[bits >> (18 - 6 * k) & 63] : '=';
    }
    return text;
}

std::string errnoText(int number) {
    return std::generic_category().message(number);
}

} // namespace SSHPlatform
