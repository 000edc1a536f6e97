// Pieces of the encodings of keys, on the wire and as text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace SSHEngine {

// Up to the first character that is neither a digit nor white space. Leaves no copy of its own.
std::string decodedBase64(std::string_view base64);

// Takes a number of four bytes, the most significant one first, from the front; none where there
// are fewer.
std::optional<std::uint32_t> takeNumber(std::string_view &bytes);

// Takes a string with its length before it (RFC 4251, section 5) from the front.
std::optional<std::string_view> takeString(std::string_view &bytes);

// For people, as `ssh-keygen -l` prints it: "SHA256:...". `key` is in the wire encoding of
// RFC 4253, section 6.6.
std::string keyFingerprint(std::string_view key);

} // namespace SSHEngine
