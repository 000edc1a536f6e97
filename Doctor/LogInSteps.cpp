// As the user: the log-in, and what runs then.
#include "Doctor/Steps.h"

#include "Doctor/Visit.h"

#include <SSHSession/SSHCommand.h>
#include <SSHSession/SSHFinding.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <utility>

namespace SSHEngine {

namespace {

using Result = SSHAttemptResult;

constexpr std::chrono::seconds longestLogIn(20); // with the commands

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

bool hasEnded(const SSHFacts &facts) {
    return facts.disconnect ||
           std::any_of(facts.attempts.begin(), facts.attempts.end(),
                       [](const SSHAttempt &each) { return each.result == Result::Ended; });
}

// Whether a normal run would have asked the user where this one did not. After the end of the
// connection nobody is asked for a password.
bool wouldAsk(const Examination &examination, const SSHFacts &facts) {
    const auto isOffered = [&](const char *name) {
        return std::find(facts.methods.begin(), facts.methods.end(), name) != facts.methods.end();
    };
    const SSHSessionOptions &options = examination.patient.options;
    return std::any_of(facts.attempts.begin(), facts.attempts.end(),
                       [](const SSHAttempt &each) { return each.result == Result::NotGiven; }) ||
           (!examination.patient.password && !hasEnded(facts) &&
            ((options.asksForPassword && isOffered("password")) ||
             (options.asksServersQuestions && isOffered("keyboard-interactive"))));
}

// A server that offers keyboard-interactive and asks nothing by it has refused no answer.
bool isSecretRefused(const SSHAttempt &attempt) {
    return (attempt.method == "password" || !attempt.questions.empty()) &&
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
        return examination.noteUnasked(facts);
    examination.failBy(facts);
}

} // namespace

void examineLogIn(Examination &examination) {
    examination.visit = std::make_shared<Visit>(examination, longestLogIn);
    Visit &visit = *examination.visit;
    if (!logIn(visit))
        return tellRefusal(examination, visit);
    const SSHFacts facts = visit.facts();
    std::vector<std::string> ways;
    for (const SSHAttempt &each : facts.attempts)
        if (each.result == Result::Accepted || each.result == Result::AcceptedInPart)
            ways.push_back(named(each));
    examination.ok(
        fmt::format("{} is in, by {}.", inQuotes(examination.patient.user),
                    ways.empty() ? "what was given" : fmt::format("{}", fmt::join(ways, " and "))));
    if (const std::string &banner = facts.banner;
        !banner.empty() && banner != examination.facts.banner)
        examination.note("At the log-in the server shows " + inQuotes(banner) + ".");
    visit.connection->becomeEstablished();
    examination.reached |= Examination::IsIn;
}

namespace {

// What a command of the examination's has come to. `failure` is null where it has run.
struct Ran {
    std::shared_ptr<SSHCommand> command = std::make_shared<SSHCommand>();
    SSHErrorRef failure = nullptr;
    SSHFacts facts = {};

    bool isGood() const {
        return !failure && command->exitStatus() == 0 && !command->wasEndedBySignal();
    }
};

Ran run(Visit &visit, const char *text, const SSHDataRef &input = nullptr) {
    Ran ran;
    ran.command->setCommand(text);
    ran.command->setStdinData(input);
    visit.connection->notes->note([](SSHFacts &facts) { facts.stage = SSHSessionStage::Execute; });
    const bool isRun = visit.engine->execute(ran.command, &ran.failure);
    ran.facts = visit.facts();
    ran.facts.stage = SSHSessionStage::Execute;
    ran.facts.error = isRun ? nullptr : ran.failure;
    if (!isRun && visit.isTooLate())
        ran.facts = ended(ran.facts, SSHErrorCause::CommandTimedOut, SSHSessionStage::Execute);
    SSHCommandFacts &facts = ran.facts.command;
    if (!isRun)
        return ran;
    facts.hasEnded = true;
    facts.exitStatus = ran.command->exitStatus();
    facts.exitSignal = ran.command->wasEndedBySignal() ? *ran.command->exitSignal() : "";
    facts.outputBegin = ran.command->stdoutData()->view();
    facts.errorEnd = ran.command->stderrData()->view();
    return ran;
}

// With its line end. What it holds is wiped.
SSHDataRef lineOf(const SSHPlatform::Secret &password) {
    using SSHPlatform::ByteBuffer;
    const auto line = std::make_shared<ByteBuffer>("", ByteBuffer::Contents::Secret);
    line->append(password.view());
    line->append("\n");
    return line;
}

} // namespace

void examineShell(Examination &examination) {
    const Ran ran = run(*examination.visit, "true");
    if (ran.failure)
        examination.reached &= ~unsigned{Examination::IsIn};
    if (!ran.isGood() && SSHFindings(ran.facts).empty())
        return examination.fail(
            fmt::format("\"true\" ended with exit status {}, which it never does by itself: the "
                        "account's shell, or what it runs as it starts, ends before. It said: {}.",
                        ran.command->exitStatus(), inQuotes(ran.facts.command.errorEnd)),
            fmt::format("Look on the server at the account's shell, with `getent passwd {}`, and "
                        "at the shell's start-up files.",
                        examination.patient.user));
    if (!ran.isGood())
        return examination.failBy(ran.facts);
    const std::size_t printed = ran.command->stdoutData()->size();
    if (printed == 0)
        return examination.ok("\"true\" has run, and the shell prints nothing of its own.");
    if (examination.patient.adminPassword && !examination.patient.options.followsSudo)
        return examination.failBy(
            ended(ran.facts, SSHErrorCause::SudoSilent, SSHSessionStage::Execute));
    examination.note(fmt::format("The shell prints {} bytes of its own before what a command "
                                 "prints. Its start-up files should print on a terminal only.",
                                 printed));
}

// A wrong password is not asked for again: there is nothing more to read.
void examineSudo(Examination &examination) {
    const Ran ran = run(*examination.visit, "/usr/bin/sudo -S -k -p '' /bin/true",
                        lineOf(examination.patient.adminPassword));
    if (ran.isGood())
        return examination.ok("It lets the user run commands with the password that was given.");
    SSHFacts found = ran.facts;
    if (!ran.failure)
        found = ended(found, SSHErrorCause::SudoRefused, SSHSessionStage::Execute);
    else if (examination.visit->isTooLate())
        found = ended(found, SSHErrorCause::SudoSilent, SSHSessionStage::Execute);
    found.command.hasAdminPassword = true;
    examination.failBy(found);
}

} // namespace SSHEngine
