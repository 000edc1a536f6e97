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

} // namespace

int reportPlainly(const Outcome &outcome) {
    if (outcome.command.stdoutData()) {
        writeOutput(outcome.command.stdoutData()->view());
        writeErrorOutput(outcome.command.stderrData()->view());
    }
    if (!outcome.error)
        return exitStatusOf(outcome.command);
    tellError(*outcome.error);
    return failedStatus;
}
