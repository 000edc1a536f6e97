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

Problem cutOff() {
    return {.description = QStringLiteral("The connection ended before the command did."),
            .suggestion = QStringLiteral("Connect again and look whether it is still running."),
            .reason = QStringLiteral("What the command wrote may be cut, and its exit status is "
                                     "not known."),
            .origin = {}};
}

QString after(const QString &end, double seconds) {
    return QStringLiteral("%1 after %2").arg(end, durationText(seconds));
}

} // namespace

Problem problemOf(const SSHFacts &facts) {
    Problem problem = wordsOf(*facts.error);
    problem.suggestion = adviceOf(SSHFindings(facts));
    return problem;
}

CommandOutcome outcomeOf(const SSHCommand &command, const SSHFacts &facts, double seconds) {
    if (!command.isClosedInOrder())
        return {.summary = after(QStringLiteral("Cut off"), seconds), .problem = cutOff()};
    const QString end =
        command.wasEndedBySignal()
            ? QStringLiteral("Ended by signal %1").arg(visibleText(*command.exitSignal()))
            : QStringLiteral("Exit status %1").arg(command.exitStatus());
    CommandOutcome outcome = {.summary = after(end, seconds), .problem = {}};
    if (const QString advice = adviceOf(SSHFindings(facts)); !advice.isEmpty())
        outcome.problem = {.description = end, .suggestion = advice, .reason = {}, .origin = {}};
    return outcome;
}

CommandOutcome failureOf(const SSHFacts &facts, double seconds) {
    const bool isCancelled = facts.error->cause() == SSHErrorCause::Cancelled;
    return {.summary = after(isCancelled ? QStringLiteral("Cancelled") : QStringLiteral("Failed"),
                             seconds),
            .problem = problemOf(facts)};
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
