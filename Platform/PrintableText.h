// SPDX-License-Identifier: BSD-3-Clause

// Texts of others, made harmless to show.
#pragma once

#include <SSHSession/SSHSessionExport.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace SSHPlatform {

// A text that may come from a server, in a form that a terminal does not obey and that reads as it
// stands: each control character (of ASCII, and U+0080 to U+009F) but those in `allowed`, each
// character that steers the direction or the breaking of lines, and each byte sequence that is not
// UTF-8, becomes "?".
SSHSESSION_EXPORT std::string printableText(std::string_view text, std::string_view allowed = "\n");

// How many bytes at the end of a piece of text, three at most, may belong to a character that the
// next piece goes on with. Looked at with that, they are told from what is not UTF-8.
SSHSESSION_EXPORT std::size_t unfinishedSize(std::string_view text);

} // namespace SSHPlatform
