#include "TerminalText.h"

#include <SSHSession/PrintableText.h>

#include <cstddef>
#include <utility>

namespace {

// How many bytes at the end may become something else with those that follow.
std::size_t undecided(std::string_view text) {
    return text.ends_with('\r') ? 1 : SSHPlatform::unfinishedSize(text);
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
