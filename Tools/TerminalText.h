// Makes a stream of text harmless for a terminal, piece by piece.
#pragma once

#include <string>
#include <string_view>

class TerminalText {
  public:
    // Control characters are masked, but for tabs and line ends of both kinds. What only the next
    // piece can tell, a character or a line end that has come in part, is kept back.
    std::string take(std::string_view piece);

    // What was kept back, at the end.
    std::string rest();

  private:
    std::string mKept;
};
