#include <SSHSession/PrintableText.h>

#include <utf8.h>

#include <algorithm>
#include <iterator>

namespace SSHPlatform {

namespace {

constexpr bool isBetween(char32_t character, char32_t first, char32_t last) {
    return first <= character && character <= last;
}

bool isControl(char32_t character) {
    return character < 0x20 || isBetween(character, 0x7F, 0x9F);
}

// Marks, embeddings, overrides and isolates of direction; separators of lines and paragraphs.
bool steersReading(char32_t character) {
    return character == 0x61C || isBetween(character, 0x200E, 0x200F) ||
           isBetween(character, 0x2028, 0x202E) || isBetween(character, 0x2066, 0x2069);
}

// Of the character that begins with this byte.
std::size_t length(unsigned char lead) {
    constexpr unsigned two = 0xC0;
    constexpr unsigned three = 0xE0;
    constexpr unsigned four = 0xF0;
    return lead >= four ? 4 : lead >= three ? 3 : lead >= two ? 2 : 1;
}

} // namespace

std::string printableText(std::string_view text, std::string_view allowed) {
    std::string valid;
    utf8::replace_invalid(text.begin(), text.end(), std::back_inserter(valid), U'?');
    std::string result;
    for (auto at = valid.cbegin(); at != valid.cend();) {
        const auto begin = at;
        const char32_t character = utf8::unchecked::next(at);
        if (steersReading(character) ||
            (isControl(character) && allowed.find(*begin) == std::string_view::npos))
            result += '?';
        else
            result.append(begin, at);
    }
    return result;
}

std::size_t unfinishedSize(std::string_view text) {
    constexpr unsigned continuationMask = 0xC0;
    constexpr unsigned continuation = 0x80;
    for (std::size_t count = 1; count <= std::min<std::size_t>(text.size(), 3); ++count) {
        const auto byte = static_cast<unsigned char>(text[text.size() - count]);
        if ((byte & continuationMask) != continuation)
            return length(byte) > count ? count : 0;
    }
    return 0;
}

} // namespace SSHPlatform
