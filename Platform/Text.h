// UTF-8 text that may be absent, and bytes that may not be text at all.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace SSHPlatform {

// What a text placeholder shows for an absent value, and a command without an exit signal.
inline constexpr std::string_view nullText = "(null)";

std::string textOrNull(const std::optional<std::string> &text);

// The bytes as text. Every byte sequence that is not UTF-8 becomes U+FFFD.
std::string decodedUTF8(std::string_view bytes);

bool isUTF8(std::string_view bytes);

// The system's message for an errno value, without changing errno.
std::string errnoText(int number);

} // namespace SSHPlatform
