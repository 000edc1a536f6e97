// The error that tells a delegate why the server disconnected.
#pragma once

#include <SSHSession/SSHError.h>

#include <string_view>

// `reason`, `message` and `language` as in SSH_MSG_DISCONNECT (RFC 4253, section 11.1). Null for a
// disconnect in good order (reason 11). Empty texts count as not sent, because on the wire both are
// always there; bytes that are not UTF-8 become U+FFFD.
SSHErrorRef disconnectError(int reason, std::string_view message, std::string_view language);
