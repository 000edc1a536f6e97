#include <SSHSession/TerminalPrompts.h>

#include <utf8.h>

#include <iterator>

namespace SSHPlatform {

namespace {

bool isControl(char32_t character) {
    return character < 0x20 || (character >= 0x7F && character < 0xA0);
}

} // namespace

std::string printableText(std::string_view text, std::string_view allowed) {
    std::string valid;
    utf8::replace_invalid(text.begin(), text.end(), std::back_inserter(valid), U'?');
    std::string result;
    for (auto at = valid.cbegin(); at != valid.cend();) {
        const auto begin = at;
        if (isControl(utf8::unchecked::next(at)) && allowed.find(*begin) == std::string_view::npos)
            result += '?';
        else
            result.append(begin, at);
    }
    return result;
}

} // namespace SSHPlatform
