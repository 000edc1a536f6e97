// Whatever bytes come, decoded text is valid UTF-8 and valid text stays as it is; and what is shown
// on a terminal is, besides, free of control characters but those that are allowed.
#include "Fuzz/Support/Property.h"

#include "Platform/Text.h"

#include <SSHSession/PrintableText.h>

#include <utf8.h>

#include <string>

namespace {

bool isObeyed(char32_t character) {
    return character < 0x20 || (character >= 0x7F && character < 0xA0);
}

void print(std::string_view text, std::string_view allowed) {
    const std::string shown = SSHPlatform::printableText(text, allowed);
    hold(SSHPlatform::isUTF8(shown), "printable text is UTF-8");
    hold(SSHPlatform::printableText(shown, allowed) == shown, "printable text stays as it is");
    for (auto at = shown.begin(); at != shown.end();) {
        const char32_t character = utf8::next(at, shown.end());
        hold(!isObeyed(character) ||
                 (character < 0x7F &&
                  allowed.find(static_cast<char>(character)) != std::string_view::npos),
             "no control character comes through");
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view input = textOf(data, size);
    const std::string text = SSHPlatform::decodedUTF8(input);
    hold(SSHPlatform::isUTF8(text), "decoded text is UTF-8");
    hold(!SSHPlatform::isUTF8(input) || text == input, "UTF-8 is decoded as it is");
    hold(SSHPlatform::textOrNull(text) == text, "a text is not absent");
    print(input, "");
    print(input, "\n");
    print(input, "\t\n");
    return 0;
}
