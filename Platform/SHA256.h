// The hash by which people compare keys.
#pragma once

#include <string>
#include <string_view>

namespace SSHPlatform {

// The 32 bytes of FIPS 180-4's SHA-256. Of what is no secret: it leaves copies behind.
std::string sha256(std::string_view bytes);

} // namespace SSHPlatform
