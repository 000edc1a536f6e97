#include "Report.h"

#include "ExitStatus.h"
#include "Output.h"

#include <optional>
#include <string>

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

} // namespace

int reportPlainly(const Outcome &outcome) {
    const int status = outcome.facts.error ? failedStatus : exitStatusOf(outcome.command);
    const SSHErrorRef &error = outcome.facts.error;
    if (error)
        tellError(*error);
    // Whoever has cancelled it knows why.
    if (!error || error->cause() != SSHErrorCause::Cancelled)
        tellFindings(outcome.findings);
    return status;
}
