// As the user: the log-in, and what runs then.
#include "Doctor/Steps.h"

#include "Doctor/Visit.h"

#include <SSHSession/SSHCommand.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <utility>

namespace SSHEngine {

namespace {

using Result = SSHAttemptResult;

constexpr std::chrono::seconds longestVisit(20); // with the commands

bool logIn(Visit &visit) {
    using enum SSHSessionStage;
    if (!visit.shakeHands() || !visit.run(HostKey, &SSHSession_libssh2::_validatedHostFingerprint))
        return false;
    const bool isIn = (!visit.engine->options().triesKeysOfToday &&
                       visit.run(Agent, &SSHSession_libssh2::_authenticateWithAgent)) ||
                      visit.run(Authenticate, &SSHSession_libssh2::_authenticateManually);
    visit.engine->_tellNews(*visit.connection);
    return isIn;
}

std::string named(const SSHAttempt &attempt) {
    if (attempt.key.empty())
        return attempt.method;
    return fmt::format("{} with {}{}", attempt.method, attempt.isFromAgent ? "the agent's " : "",
                       attempt.key);
}

// Whether a normal run would have asked the user where this one did not.
bool wouldAsk(const Examination &examination, const SSHFacts &facts) {
    const auto isOffered = [&](const char *name) {
        return std::find(facts.methods.begin(), facts.methods.end(), name) != facts.methods.end();
    };
    const SSHSessionOptions &options = examination.patient.options;
    return std::any_of(facts.attempts.begin(), facts.attempts.end(),
                       [](const SSHAttempt &each) { return each.result == Result::NotGiven; }) ||
           (!examination.patient.password &&
            ((options.asksForPassword && isOffered("password")) ||
             (options.asksServersQuestions && isOffered("keyboard-interactive"))));
}

bool isSecretRefused(const SSHAttempt &attempt) {
    return attempt.method != "publickey" &&
           (attempt.result == Result::Refused || attempt.result == Result::Expired);
}

void tellRefusal(Examination &examination, const Visit &visit) {
    const SSHFacts facts = visit.facts();
    for (const SSHAttempt &each : facts.attempts)
        if (each.result == Result::AcceptedInPart)
            examination.note(fmt::format("{}: taken as one factor; the server wants {} as well.",
                                         named(each), fmt::join(each.wanted, " or ")));
    if (std::none_of(facts.attempts.begin(), facts.attempts.end(), isSecretRefused) &&
        !visit.isTooLate() && wouldAsk(examination, facts))
        return examination.note(
            "With what was given nobody gets in. A normal run would ask for "
            "more: a password, a pass phrase or what the server wants to know.");
    examination.failBy(facts,
                       "The server lets nobody in with what was given. A wrong password, an "
                       "unknown user and a barred account look alike from here.",
                       "Look into the server's log, which tells them apart.");
}

} // namespace

void examineLogIn(Examination &examination) {
    examination.visit = std::make_shared<Visit>(examination, longestVisit);
    Visit &visit = *examination.visit;
    if (!logIn(visit))
        return tellRefusal(examination, visit);
    const SSHFacts facts = visit.facts();
    std::vector<std::string> ways;
    for (const SSHAttempt &each : facts.attempts)
        if (each.result == Result::Accepted || each.result == Result::AcceptedInPart)
            ways.push_back(named(each));
    examination.ok(
        fmt::format("{} is in, by {}.", quoted(examination.patient.user),
                    ways.empty() ? "what was given" : fmt::format("{}", fmt::join(ways, " and "))));
    if (const std::string &banner = facts.banner;
        !banner.empty() && banner != examination.facts.banner)
        examination.note("At the log-in the server shows " + quoted(banner) + ".");
    visit.connection->becomeEstablished();
    examination.reached |= Examination::IsIn;
}

void examineShell(Examination &examination) {
    Visit &visit = *examination.visit;
    const auto command = std::make_shared<SSHCommand>();
    command->setCommand("true");
    SSHErrorRef error;
    if (!visit.engine->execute(command, &error)) {
        examination.reached &= ~unsigned{Examination::IsIn};
        SSHFacts found = visit.facts();
        found.error = error;
        return examination.failBy(found, "\"true\" could not be run.",
                                  "Look into the server's log.");
    }
    const std::size_t printed = command->stdoutData()->size();
    if (command->exitStatus() != 0 || command->wasEndedBySignal())
        return examination.failBy(
            visit.facts(), fmt::format("\"true\" has ended with status {}.", command->exitStatus()),
            "Ask the server's administrator for a log-in shell.");
    if (printed == 0)
        return examination.ok("\"true\" has run, and the shell prints nothing of its own.");
    examination.note(
        fmt::format("The shell prints {} bytes of its own before each command's output. Its "
                    "start-up files should print only where there is a terminal.",
                    printed));
}

// A wrong password is not asked for again: there is nothing more to read.
void examineSudo(Examination &examination) {
    Visit &visit = *examination.visit;
    const auto command = std::make_shared<SSHCommand>();
    command->setCommand("/usr/bin/sudo -S -k -p '' /bin/true");
    const std::string_view password = examination.patient.adminPassword.view();
    const auto line =
        std::make_shared<SSHPlatform::ByteBuffer>("", SSHPlatform::ByteBuffer::Contents::Secret);
    line->append(password);
    line->append("\n");
    command->setStdinData(line);
    SSHErrorRef error;
    if (!visit.engine->execute(command, &error))
        return examination.failBy(SSHErrorCause::SudoSilent, SSHSessionStage::Execute,
                                  "sudo has not answered.", "Look into the server's log.");
    if (command->exitStatus() == 0 && !command->wasEndedBySignal())
        return examination.ok("It takes the administrator's password.");
    examination.failBy(
        visit.facts(),
        fmt::format("It refuses, with the words {}.", quoted(command->stderrData()->view())),
        "Try the password at the server, with \"sudo true\".");
}

} // namespace SSHEngine
