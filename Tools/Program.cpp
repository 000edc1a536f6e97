#include "Program.h"

#include "CoreDump.h"
#include "Doctor.h"
#include "ExitStatus.h"
#include "Failure.h"
#include "Inputs.h"
#include "Interruption.h"
#include "Options.h"
#include "Output.h"
#include "Report.h"
#include "StageClock.h"

#include <SSHSession/SSHSession.h>
#include <SSHSession/TerminalPrompts.h>

#include <pwd.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <optional>
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
    command->setStdinData(inputs.standardInput);
    return command;
}

// What the session has no error for.
SSHErrorRef ownError(const char *description, const char *reason) {
    return std::make_shared<SSHError>(
        "sshsession", 0,
        SSHError::UserInfo{{SSHError::NSLocalizedDescriptionKey, description},
                           {SSHError::NSLocalizedFailureReasonErrorKey, reason}});
}

SSHErrorRef declinedError() {
    return ownError("The server's host key was not accepted.",
                    "The question was answered with no, or there is no terminal to ask on.");
}

SSHErrorRef cutOffError() {
    return ownError("The connection ended before the command did.",
                    "What the command wrote may be cut, its exit status is not known, and it may "
                    "still be running.");
}

// Answers null when the command has run to its end.
SSHErrorRef runSession(SSHSession &session, const std::shared_ptr<SSHCommand> &command) {
    SSHErrorRef error;
    if (!session.start(&error))
        return error ? error : declinedError();
    if (!session.execute(command, &error))
        return error;
    session.stop();
    return command->isClosedInOrder() ? nullptr : cutOffError();
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
    auto interruption = std::make_shared<Interruption>(session);
    session->addObserver(interruption);
    const auto command = makeCommand(options, inputs);
    const Outcome outcome = {*command, runSession(*session, command)};
    interruption.reset(); // whoever reads the output may never come to it: signals end that wait
    const int status = options.asJson ? reportAsJson(outcome, clock->timings())
                                      : reportPlainly(outcome, options.isRaw);
    Interruption::takeEffect();
    return status;
}

int print(const Notice &notice) {
    writeOutput(notice.text);
    return 0;
}

} // namespace

int runProgram(const std::vector<std::string> &arguments) noexcept {
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
