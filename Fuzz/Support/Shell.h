// Real shells that read words back, each one process for all inputs: one for every input would take
// a thousand times as long.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// Whether every shell of this machine that counts reads the words of a command line as exactly
// these, of which none holds a zero byte: /bin/sh and, where it is there, bash. One that is left in
// the middle of a quotation says nothing; that is waited for at most five seconds. Tells on
// standard error which shell does not.
bool everyShellReads(std::string_view words, const std::vector<std::string> &expected);

// The same for a line as bash reads it from a user who types, with history. True without bash.
bool historyShellReads(std::string_view words, const std::vector<std::string> &expected);
