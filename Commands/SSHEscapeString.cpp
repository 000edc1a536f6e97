#include <SSHSession/SSHEscapeString.h>

#include <cstdint>
#include <string_view>

namespace {

enum class Quote { None, Single, Double };

struct Step {
    std::string_view before; // emitted in front of the input byte
    Quote next;
};

// An exclamation mark must stand outside any quotes, because interactive shells expand it even
// inside double quotes; apostrophes can only stand inside double quotes.
Step stepFor(Quote state, char byte) {
    switch (state) {
    case Quote::None:
        if (byte == '!')
            return {"\\", Quote::None};
        return byte == '\'' ? Step{"\"", Quote::Double} : Step{"'", Quote::Single};
    case Quote::Single:
        if (byte == '!')
            return {"'\\", Quote::None};
        return byte == '\'' ? Step{"'\"", Quote::Double} : Step{"", Quote::Single};
    case Quote::Double:
        if (byte == '!')
            return {"\"\\", Quote::None};
        return byte == '\'' ? Step{"", Quote::Double} : Step{"\"'", Quote::Single};
    }
    return {};
}

std::string_view closing(Quote state) {
    return state == Quote::Single ? "'" : state == Quote::Double ? "\"" : "";
}

} // namespace

std::string SSHEscapeString(const std::string &string) noexcept {
    const std::string_view input = string.c_str();
    // The worst case is two bytes for the first input byte, three for each further one and one for
    // the closing quote. The arithmetic is 32 bits wide: an input so long that it wraps is refused
    // rather than quoted in part.
    const auto length = static_cast<std::uint32_t>(input.size());
    const std::uint32_t capacity = 3 * length + 2;
    const auto fits = [&](std::size_t size) { return size < capacity; };

    std::string output;
    Quote state = Quote::None;
    for (const char byte : input) {
        const Step step = stepFor(state, byte);
        if (!fits(output.size() + step.before.size() + 1))
            return {};
        output.append(step.before).push_back(byte);
        state = step.next;
    }
    output.append(closing(state));
    return fits(output.size() + 1) ? output : std::string();
}
