#include "Program.h"

#include "CoreDump.h"
#include "Doctor.h"
#include "ExitStatus.h"
#include "Failure.h"
#include "Handover.h"
#include "Inputs.h"
#include "Interruption.h"
#include "Narrator.h"
#include "Options.h"
#include "Output.h"
#include "Report.h"
#include "StageClock.h"
#include "Waiting.h"

#include <SSHSession/SSHSession.h>
#include <SSHSession/TerminalPrompts.h>

#include <pwd.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <optional>
#include <string_view>
#include <variant>

namespace {

class DisconnectTeller final : public SSHSessionDelegate {
  public:
    void sshSessionDisconnected(SSHSession & /*session*/,
                                const SSHErrorRef &error) noexcept override {
        tell(error ? "The server ended the connection: " + error->text()
                   : "The server ended the connection.");
    }
};

std::string currentUser() {
    const passwd *const entry = ::getpwuid(::getuid());
    if (!entry)
        throw Failure("The current user has no name in the user database. Write USER@HOST.");
    return entry->pw_name;
}

// What the server shows at log-in is not the command's output.
class BannerTeller final : public SSHSessionObserver {
  public:
    void didReceiveBanner(SSHSession & /*session*/, const std::string &banner) noexcept override {
        tellText(banner);
    }
};

SSHSessionOptions sessionOptions(const Options &options) {
    SSHSessionOptions chosen =
        options.isClassic ? SSHSessionOptions() : SSHSessionOptions::recommended();
    chosen.furtherKeyFiles = options.furtherKeyFiles;
    if (options.isForIPv4 || options.isForIPv6)
        chosen.addressFamily = options.isForIPv4 ? SSHAddressFamily::IPv4 : SSHAddressFamily::IPv6;
    if (options.connectTimeout)
        chosen.connectTimeout = std::chrono::seconds(*options.connectTimeout);
    if (options.timeout)
        chosen.commandTimeout = std::chrono::seconds(*options.timeout);
    return chosen;
}

std::shared_ptr<SSHSession> makeSession(const Options &options, const std::string &user,
                                        const SSHPlatform::Secret &password) {
    return SSHSession::sessionWithHost(options.host, options.port, user, password, options.keyFile,
                                       sessionOptions(options));
}

std::shared_ptr<SSHCommand> makeCommand(const Options &options, const Inputs &inputs) {
    auto command = std::make_shared<SSHCommand>();
    command->setCommand(options.command);
    command->setAdminPassword(inputs.adminPassword.shared());
    if (inputs.standardInput)
        command->setStdinDescriptor(inputs.standardInput->descriptor());
    return command;
}

// The session calls it no failure, but what is in the record may not be all.
SSHErrorRef cutOffError() {
    return std::make_shared<SSHError>(
        "sshsession", 0,
        SSHError::UserInfo{
            {SSHError::NSLocalizedDescriptionKey, "The connection ended before the command did."},
            {SSHError::NSLocalizedFailureReasonErrorKey,
             "What the command wrote may be cut, its exit status is not known, and it may still be "
             "running."}},
        SSHErrorCause::ConnectionLost);
}

// What is known when the session has done what it could. Only a failure is worth a look around.
SSHFacts runSession(SSHSession &session, const std::shared_ptr<SSHCommand> &command) {
    if (!session.start(nullptr) || !session.execute(command, nullptr))
        return session.examinedFacts();
    session.stop();
    SSHFacts facts = session.facts();
    if (facts.hostKey.recordFailure != 0)
        facts = session.examinedFacts();
    if (!command->isClosedInOrder())
        facts.error = cutOffError();
    return facts;
}

bool isWatchedByAPerson(const Options &options) {
    return !options.asJson && ::isatty(STDERR_FILENO) != 0;
}

using SignalHandler = void (*)(int);
SignalHandler brokenPipeHandler = SIG_DFL; // as the program's caller left it

// As programs do that do not look: silently, and so that a shell sees it.
int dieOfBrokenPipe() {
    std::signal(SIGPIPE, SIG_DFL);
    std::raise(SIGPIPE);
    return failedStatus;
}

int runCommand(const Options &options) {
    const std::string user = options.user ? *options.user : currentUser();
    forbidCoreDump(); // any session may come to ask for a pass phrase
    const Inputs inputs = readInputs(options, user);
    SSHPlatform::install(nullptr, SSHPlatform::terminalAlertPresenter());
    if (options.isVerbose)
        SSHPlatform::setLogSink([](const std::string &message) { tell(message); });
    if (options.isDoctor)
        return runDoctor(options, user, inputs, sessionOptions(options));

    DisconnectTeller delegate;
    const auto clock = std::make_shared<StageClock>(options.isVerbose);
    const auto session = makeSession(options, user, inputs.password);
    session->setDelegate(&delegate);
    const auto banners = std::make_shared<BannerTeller>();
    session->addObserver(clock);
    session->addObserver(banners);
    const auto narrator = std::make_shared<Narrator>();
    if (options.isVerbose)
        session->addObserver(narrator);
    auto interruption = std::make_shared<Interruption>(session);
    session->addObserver(interruption);
    const auto command = makeCommand(options, inputs);
    Handover handover(options.isRaw);
    if (!options.asJson)
        command->setOutputSink([&](SSHCommandStream stream, std::string_view piece) {
            return handover.take(stream, piece);
        });
    std::optional<Waiting> waiting;
    if (isWatchedByAPerson(options))
        waiting.emplace(session, isFile(STDOUT_FILENO));
    SSHFacts facts = runSession(*session, command);
    waiting.reset();
    const Outcome outcome = {*command, facts, SSHFindings(facts)};
    interruption.reset(); // whoever reads the output may never come to it: signals end that wait
    if (!hasRoom(STDERR_FILENO)) // for a last word, which whoever has cancelled would wait for
        Interruption::takeEffect();
    if (handover.hasLostReader() && brokenPipeHandler != SIG_IGN)
        return dieOfBrokenPipe();
    handover.finish();
    const int status =
        options.asJson ? reportAsJson(outcome, clock->timings()) : reportPlainly(outcome);
    Interruption::takeEffect();
    return status;
}

int print(const Notice &notice) {
    writeOutput(notice.text);
    return 0;
}

} // namespace

int runProgram(const std::vector<std::string> &arguments) noexcept {
    brokenPipeHandler =
        std::signal(SIGPIPE, SIG_IGN); // a reader that went away is an error like any other
    reserveStandardStreams();
    try {
        const auto wanted = parseOptions(arguments);
        const auto *const options = std::get_if<Options>(&wanted);
        const int status = options ? runCommand(*options) : print(std::get<Notice>(wanted));
        finishOutput();
        return status;
    } catch (const Failure &failure) {
        tell(failure.what());
        return failedStatus;
    }
}
