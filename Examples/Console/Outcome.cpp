#include "Examples/Console/Outcome.h"

#include "Examples/Console/VisibleText.h"

#include <SSHSession/SSHFinding.h>

#include <QLocale>
#include <QStringList>

#include <algorithm>
#include <cmath>
#include <string_view>
#include <vector>

namespace {

// More would take long to lay out; saving gives everything.
constexpr std::size_t shownBytes = 262'144;

std::string_view bytesOf(const SSHDataRef &data) {
    return data ? data->view() : std::string_view();
}

QString shown(const SSHDataRef &data) {
    const std::string_view bytes = bytesOf(data);
    QString text = visibleText(bytes.substr(0, shownBytes));
    if (bytes.size() > shownBytes)
        text += QStringLiteral("\n[%1 more: use Save]").arg(sizeText(bytes.size() - shownBytes));
    return text;
}

QString visible(const std::optional<std::string> &text) {
    return text ? visibleText(*text) : QString();
}

Problem wordsOf(const SSHError &error) {
    return {.description = visible(error.localizedDescription()),
            .suggestion = {},
            .reason = visible(error.localizedFailureReason()),
            .origin =
                QStringLiteral("%1, code %2").arg(visibleText(error.domain())).arg(error.code())};
}

// The most likely ones: the window has room for two.
QString adviceOf(std::vector<SSHFinding> findings) {
    constexpr std::size_t most = 2;
    findings.resize(std::min(findings.size(), most));
    QStringList paragraphs;
    for (const SSHFinding &finding : findings)
        paragraphs += visibleText(finding.text) + QStringLiteral("\nWhat to do: ") +
                      visibleText(finding.step);
    return paragraphs.join(QLatin1Char('\n'));
}

} // namespace

CommandOutcome outcomeOf(const SSHCommand &command, double seconds) {
    CommandOutcome outcome;
    outcome.output = command.stdoutData();
    outcome.errorOutput = command.stderrData();
    outcome.shownOutput = shown(outcome.output);
    outcome.shownErrorOutput = shown(outcome.errorOutput);
    outcome.isCutOff = !command.isClosedInOrder();
    outcome.summary =
        command.wasEndedBySignal()
            ? QStringLiteral("Ended by signal %1").arg(visibleText(*command.exitSignal()))
            : QStringLiteral("Exit status %1").arg(command.exitStatus());
    if (outcome.isCutOff)
        outcome.summary = QStringLiteral("Cut off");
    outcome.summary += QStringLiteral(" after %1").arg(durationText(seconds));
    return outcome;
}

Problem problemOf(const SSHFacts &facts) {
    Problem problem = wordsOf(*facts.error);
    problem.suggestion = adviceOf(SSHFindings(facts));
    return problem;
}

Problem cutOff() {
    return {.description = QStringLiteral("The connection ended before the command did."),
            .suggestion = QStringLiteral("Connect again and look whether it is still running."),
            .reason = QStringLiteral("What the command wrote may be cut, and its exit status is "
                                     "not known."),
            .origin = {}};
}

Problem serverLeft(const SSHErrorRef &error) {
    Problem problem = error ? wordsOf(*error) : Problem();
    problem.reason = problem.description; // the server's own words
    problem.description = QStringLiteral("The server has ended the connection.");
    return problem;
}

QString durationText(double seconds) {
    return seconds < 10 ? QStringLiteral("%1 s").arg(seconds, 0, 'f', seconds < 1 ? 2 : 1)
                        : elapsedText(seconds);
}

QString elapsedText(double seconds) {
    const auto whole = static_cast<long>(std::floor(seconds));
    return whole < 60 ? QStringLiteral("%1 s").arg(whole)
                      : QStringLiteral("%1 min %2 s").arg(whole / 60).arg(whole % 60);
}

QString sizeText(std::size_t bytes) {
    return bytes < 1000 ? QStringLiteral("%1 bytes").arg(bytes)
                        : QLocale::c().formattedDataSize(static_cast<qint64>(bytes), 1,
                                                         QLocale::DataSizeSIFormat);
}
