// Text from a server, made harmless for the eye: nothing in it can hide or reorder what is shown.
#pragma once

#include <QString>

#include <string_view>

// The bytes as UTF-8 text. Line feeds and tabs stay; every other control character, and whatever
// steers the direction or the breaking of lines, is shown by its code, as in <U+001B>. What is not
// UTF-8 becomes U+FFFD.
QString visibleText(std::string_view bytes);
