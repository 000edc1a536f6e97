#include <SSHSession/Secret.h>

namespace SSHPlatform {

void wipe(char *bytes, std::size_t count) noexcept {
    volatile char *const forgotten = bytes;
    for (std::size_t i = 0; i < count; ++i)
        forgotten[i] = 0;
}

void wipe(std::string &text) noexcept {
    text.resize(text.capacity());
    wipe(text.data(), text.size());
    text.clear();
}

} // namespace SSHPlatform
