#include "Report.h"

#include "ExitStatus.h"
#include "Output.h"

#include <SSHSession/PrintableText.h>

#include <unistd.h>

#include <optional>
#include <string>
#include <string_view>

namespace {

void tellError(const SSHError &error) {
    const auto reason = error.localizedFailureReason();
    const auto suggestion = error.localizedRecoverySuggestion();
    for (const auto &text :
         {error.localizedDescription(), reason, suggestion == reason ? std::nullopt : suggestion})
        if (text && !text->empty())
            tellText(*text);
}

void tellFindings(const std::vector<SSHFinding> &findings) {
    const char *heading = "What is wrong: ";
    for (const SSHFinding &finding : findings) {
        tellText(heading + finding.text + "\nWhat to do: " + finding.step);
        heading = "Besides: ";
    }
}

// On a terminal, line ends of both kinds do what they should, and nothing else does anything.
void hand(std::string_view bytes, int descriptor, bool isRaw, void (*write)(std::string_view)) {
    if (isRaw || ::isatty(descriptor) == 0)
        return write(bytes);
    std::string lines;
    for (std::size_t i = 0; i < bytes.size(); ++i)
        if (bytes.substr(i, 2) != "\r\n")
            lines += bytes[i];
    write(SSHPlatform::printableText(lines, "\t\n"));
}

} // namespace

int reportPlainly(const Outcome &outcome, bool isRaw) {
    if (outcome.command.stdoutData()) {
        hand(outcome.command.stdoutData()->view(), STDOUT_FILENO, isRaw, writeOutput);
        hand(outcome.command.stderrData()->view(), STDERR_FILENO, isRaw, writeErrorOutput);
    }
    const int status = outcome.facts.error ? failedStatus : exitStatusOf(outcome.command);
    const SSHErrorRef &error = outcome.facts.error;
    if (error)
        tellError(*error);
    // Whoever has cancelled it knows why.
    if (!error || error->cause() != SSHErrorCause::Cancelled)
        tellFindings(outcome.findings);
    return status;
}
