#include "TerminalText.h"

#include <SSHSession/PrintableText.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace {

// Of UTF-8's character that begins with this byte.
std::size_t length(unsigned char lead) {
    constexpr unsigned two = 0xC0;
    constexpr unsigned three = 0xE0;
    constexpr unsigned four = 0xF0;
    return lead >= four ? 4 : lead >= three ? 3 : lead >= two ? 2 : 1;
}

// How many bytes at the end may become something else with those that follow.
std::size_t undecided(std::string_view text) {
    constexpr unsigned continuationMask = 0xC0;
    constexpr unsigned continuation = 0x80;
    if (text.ends_with('\r'))
        return 1;
    for (std::size_t count = 1; count <= std::min<std::size_t>(text.size(), 3); ++count) {
        const auto byte = static_cast<unsigned char>(text[text.size() - count]);
        if ((byte & continuationMask) != continuation)
            return length(byte) > count ? count : 0;
    }
    return 0;
}

std::string printable(std::string_view text) {
    std::string lines;
    for (std::size_t i = 0; i < text.size(); ++i)
        if (text.substr(i, 2) != "\r\n")
            lines += text[i];
    return SSHPlatform::printableText(lines, "\t\n");
}

} // namespace

std::string TerminalText::take(std::string_view piece) {
    std::string text = std::exchange(mKept, {}).append(piece);
    const std::size_t end = text.size() - undecided(text);
    mKept = text.substr(end);
    text.resize(end);
    return printable(text);
}

std::string TerminalText::rest() {
    return printable(std::exchange(mKept, {}));
}
