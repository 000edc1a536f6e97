// SPDX-License-Identifier: BSD-3-Clause

// Texts that must not stay behind: passwords and pass phrases.
#pragma once

#include <SSHSession/SSHSessionExport.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace SSHPlatform {

// Overwrites a secret before its memory is given back, which the compiler must not leave out. Of a
// string all of the capacity, since a shortened text still holds what it was; it is empty then.
SSHSESSION_EXPORT void wipe(char *bytes, std::size_t count) noexcept;
SSHSESSION_EXPORT void wipe(std::string &text) noexcept;

// A secret text, or none. It lies in one place on the heap, which is overwritten when the last
// owner lets go of it; copies of a Secret share that place. (A string is copied when it is moved,
// as long as it is short, and when it grows, and nobody overwrites what is left.) The text never
// changes; any thread.
class SSHSESSION_EXPORT Secret {
  public:
    static Secret none() noexcept { return Secret(nullptr); }
    // A copy: who made `text` wipes it.
    static Secret of(std::string_view text) noexcept;
    // Wipes the original, which is none then.
    static Secret takenFrom(std::optional<std::string> &text) noexcept;

    explicit operator bool() const noexcept { return mKept != nullptr; }

    // None for none. Valid as long as one of those that share it lives.
    const std::optional<std::string> &text() const noexcept;

    // Empty for none, and with a zero byte behind it.
    std::string_view view() const noexcept;

    // The text as one more owner of it; null for none.
    std::shared_ptr<const std::string> shared() const noexcept;

  private:
    struct Kept;
    explicit Secret(std::shared_ptr<const Kept> kept) noexcept;

    std::shared_ptr<const Kept> mKept;
};

} // namespace SSHPlatform
