// What holds for every input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

// Called by libFuzzer for each input; answers 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

inline std::string_view textOf(const std::uint8_t *data, std::size_t size) {
    return {reinterpret_cast<const char *>(data), size};
}

// Takes one byte from the front; 0 when there is none.
inline unsigned char takeByte(std::string_view &input) {
    if (input.empty())
        return 0;
    const char first = input.front();
    input.remove_prefix(1);
    return static_cast<unsigned char>(first);
}

// Ends the process, which makes the input a finding.
inline void hold(bool property, std::string_view text) {
    if (property)
        return;
    std::fprintf(stderr, "DOES NOT HOLD: %.*s\n", static_cast<int>(text.size()), text.data());
    std::abort();
}
