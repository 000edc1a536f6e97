// The user at the process's controlling terminal, whatever its standard streams are.
//
// readpassphrase(3) does nearly this, but answers the empty line at end-of-file.
#pragma once

#include <SSHSession/Secret.h>

#include <cstddef>
#include <string_view>

namespace SSHPlatform {

enum class Echo { On, Off };

// What a terminal's driver has no room for it drops in silence, so a longer line may have been cut.
#ifdef __linux__
inline constexpr std::size_t longestTerminalLine = 4094;
#else
inline constexpr std::size_t longestTerminalLine = 1000;
#endif

// Nothing happens without a terminal.
void writeToTerminal(std::string_view text);

// Asks for one line, without its end; what was typed before the prompt came does not count. None
// without a terminal, at end-of-file even in the middle of a line, after a signal that the process
// survives, and when the line is longer than that. A signal finds the terminal as it was before,
// and a process that goes on after a stop asks again. None as well once the descriptor `withdrawal`
// is readable. Any thread, one at a time.
Secret readLineFromTerminal(std::string_view prompt, Echo echo, int withdrawal = -1);

} // namespace SSHPlatform
