#include "Platform/Text.h"

#include <utf8.h>

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

std::string errnoText(int number) {
    return std::generic_category().message(number);
}

} // namespace SSHPlatform
