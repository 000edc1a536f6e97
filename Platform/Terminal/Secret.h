// Forgetting what a user typed.
#pragma once

#include <cstddef>
#include <string>

namespace SSHPlatform {

// Overwrites a secret before its memory is given back, which the compiler must not leave out.
inline void wipe(char *bytes, std::size_t count) {
    volatile char *const forgotten = bytes;
    for (std::size_t i = 0; i < count; ++i)
        forgotten[i] = 0;
}

inline void wipe(std::string &text) {
    for (volatile char &byte : text)
        byte = 0;
    text.clear();
}

} // namespace SSHPlatform
