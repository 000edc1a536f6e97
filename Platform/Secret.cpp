#include <SSHSession/Secret.h>

#include <cstring>
#include <utility>

namespace SSHPlatform {

// A compiler cannot know what it calls through a pointer that may change at any time.
void wipe(char *bytes, std::size_t count) noexcept {
    static void *(*const volatile overwrite)(void *, int, std::size_t) = std::memset;
    if (count > 0)
        overwrite(bytes, 0, count);
}

void wipe(std::string &text) noexcept {
    text.resize(text.capacity());
    wipe(text.data(), text.size());
    text.clear();
}

struct Secret::Kept {
    explicit Kept(std::string_view given) : text(std::in_place, given) {}
    Kept(const Kept &) = delete;
    Kept &operator=(const Kept &) = delete;
    ~Kept() { wipe(*text); }

    std::optional<std::string> text;
};

Secret::Secret(std::shared_ptr<const Kept> kept) noexcept : mKept(std::move(kept)) {}

Secret Secret::of(std::string_view text) noexcept {
    return Secret(std::make_shared<const Kept>(text));
}

Secret Secret::takenFrom(std::optional<std::string> &text) noexcept {
    if (!text)
        return none();
    Secret secret = of(*text);
    wipe(*text);
    text.reset();
    return secret;
}

const std::optional<std::string> &Secret::text() const noexcept {
    static const std::optional<std::string> nothing;
    return mKept ? mKept->text : nothing;
}

std::string_view Secret::view() const noexcept {
    return mKept ? *mKept->text : std::string_view("");
}

std::shared_ptr<const std::string> Secret::shared() const noexcept {
    return mKept ? std::shared_ptr<const std::string>(mKept, &*mKept->text) : nullptr;
}

} // namespace SSHPlatform
