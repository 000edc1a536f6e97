// A real shell reads a quoted text back byte for byte, up to its first zero byte, and as one word;
// the empty text vanishes. The same for a single line that is typed into a shell with history,
// which expands exclamation marks even inside quotes. (Of several lines it also takes those that
// begin with "^" for a command to it, quoted or not.)
#include "Fuzz/Support/Property.h"
#include "Fuzz/Support/Shell.h"

#include <SSHSession/SSHEscapeString.h>

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string input(textOf(data, size));
    const std::string word = input.c_str();
    const std::string quoted = SSHEscapeString(input);
    hold(quoted.empty() == word.empty(), "nothing but the empty text vanishes");
    const auto words = word.empty() ? std::vector<std::string>() : std::vector{word};
    hold(everyShellReads(quoted, words), "a shell reads the quoted text back");
    hold(word.find('\n') != std::string::npos || historyShellReads(quoted, words),
         "a shell with history reads the quoted text back");
    return 0;
}
