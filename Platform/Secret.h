// Forgetting what a user typed.
#pragma once

#include <SSHSession/SSHSessionExport.h>

#include <cstddef>
#include <string>

namespace SSHPlatform {

// Overwrites a secret before its memory is given back, which the compiler must not leave out. Of a
// string all of the capacity, since a shortened text still holds what it was; it is empty then.
SSHSESSION_EXPORT void wipe(char *bytes, std::size_t count) noexcept;
SSHSESSION_EXPORT void wipe(std::string &text) noexcept;

} // namespace SSHPlatform
