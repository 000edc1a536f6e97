// SPDX-License-Identifier: BSD-3-Clause

// Bytes as text in which every byte can be told.
#pragma once

#include <SSHSession/SSHSessionExport.h>

#include <string>
#include <string_view>

namespace SSHPlatform {

// RFC 4648, section 4, with padding and without line ends. Any thread.
SSHSESSION_EXPORT std::string base64(std::string_view bytes);

} // namespace SSHPlatform
