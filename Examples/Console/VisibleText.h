// Text from a server, made harmless for the eye: nothing in it can hide or reorder what is shown.
#pragma once

#include <QString>

#include <string>
#include <string_view>

// The bytes as UTF-8 text. Line feeds and tabs stay; every other control character, and whatever
// steers the direction or the breaking of lines, is shown by its code, as in <U+001B>. What is not
// UTF-8 becomes U+FFFD.
QString visibleText(std::string_view bytes);

// The same for what comes piece by piece.
class VisibleTextStream {
  public:
    // A character that has come in part is kept back.
    QString take(std::string_view piece);

    // What was kept back, at the end.
    QString rest();

  private:
    std::string mKept;
};
