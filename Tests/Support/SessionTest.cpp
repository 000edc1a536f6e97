#include "Tests/Support/SessionTest.h"

#include <SSHSession/RunLoop.h>

#include <fmt/format.h>

#include <future>
#include <iostream>

namespace {

// But for those that keep servers alive.
std::size_t openDescriptors() {
    // Its first timer makes the run loop open descriptors of its own, for the life of the process.
    SSHPlatform::RunLoop::main()->scheduleRepeating(std::chrono::hours(1), [] {})->invalidate();
    const std::filesystem::directory_iterator entries("/dev/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries))) - Process::count;
}

} // namespace

TestSession::ConnectionRef TestSession::handshaken() {
    ConnectionRef begun = beginConnection();
    SSHErrorRef why;
    EXPECT_TRUE(_createSocket(*begun, &why) && _startSession(*begun, &why)) << summary(why);
    return begun;
}

SessionTest::SessionTest() : mDescriptors(openDescriptors()) {
    SSHPlatform::install(nullptr, user);
    SSHPlatform::setLogSink([this](const std::string &line) { log.push_back(line); });
}

void SessionTest::TearDown() {
    for (const auto &weak : mSessions)
        if (const auto session = weak.lock())
            session->stop();
    EXPECT_TRUE(eventually([&] { return openDescriptors() <= mDescriptors; }))
        << "descriptors are left open";
    SSHPlatform::setLogSink(nullptr);
    if (HasFailure() && mServer)
        std::cerr << "--- sshd's log:\n" << mServer->log();
}

std::shared_ptr<TestSession> SessionTest::makeSession(unsigned short port,
                                                      std::optional<std::string> password,
                                                      std::optional<std::string> key,
                                                      const std::string &name) {
    auto session = std::make_shared<TestSession>(
        hostName, port, name, SSHPlatform::Secret::takenFrom(password), std::move(key), options);
    mSessions.push_back(session);
    return session;
}

Sshd &SessionTest::serverWith(const std::string &settings) {
    mServer = std::make_unique<Sshd>(Lines{"ecdsa"}, settings);
    know(mServer->hostKey());
    return *mServer;
}

Sshd &SessionTest::server() {
    if (!mServer)
        serverWith("").authorize(key());
    return *mServer;
}

const std::string &SessionTest::key() {
    if (mKey.empty()) {
        mKey = home.directory.path("client");
        makeKey(mKey, "ed25519");
    }
    return mKey;
}

std::shared_ptr<TestSession> SessionTest::connected() {
    auto session = makeSession(server().port(), std::nullopt, key());
    EXPECT_TRUE(session->start(&error)) << summary(error);
    return session;
}

void SessionTest::know(const std::string &hostKey, const std::string &name) {
    std::ofstream(home.knownHosts(), std::ios::app) << name << ' ' << hostKey << '\n';
}

std::string SessionTest::question(const Sshd &sshd, bool isChanged, const std::string &type,
                                  const std::string &details) const {
    return fmt::format(
        "{}The authenticity of host '127.0.0.1:{}' can't be established. | The server{} Do you "
        "want to add it to the list and connect?\n\nHost key: {}{} | {}",
        isChanged ? "Critical: " : "", sshd.port(),
        isChanged ? "'s identity does not match the existing entry in " + home.knownHosts() +
                        ". This could be because the server's identity has changed or a "
                        "Man-in-the-Middle attack."
                  : " does not match not in " + home.knownHosts() + ".",
        sshd.hostKey(type).substr(sshd.hostKey(type).find(' ') + 1), details,
        isChanged ? "Add and Connect= | Cancel=\r" : "Add and Connect=\r | Cancel=");
}

std::shared_ptr<SSHCommand> makeCommand(const std::string &text) {
    auto command = std::make_shared<SSHCommand>();
    command->setCommand(text);
    return command;
}

std::string resultOf(SSHSession &session, const std::string &text,
                     const std::optional<std::string> &adminPassword, const std::string &input) {
    const auto command = makeCommand(text);
    if (adminPassword)
        command->setAdminPassword(*adminPassword);
    command->setStdinData(input);
    SSHErrorRef why;
    if (session.execute(command, &why))
        return fmt::format("{} {} | {} | {}{}", command->exitStatus(), *command->exitSignal(),
                           command->stdoutData()->view(), command->stderrData()->view(),
                           command->isClosedInOrder() ? "" : ", cut off");
    return summary(why) + (session.isConnected() ? ", still connected" : "") +
           (command->stdoutData() || command->exitSignal() ? ", record written" : "");
}

bool elsewhere(const std::function<bool()> &work) {
    auto done = std::async(std::launch::async, work);
    EXPECT_TRUE(eventuallyServing(
        [&] { return done.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    return done.get();
}

bool eventuallyServing(const std::function<bool()> &condition) {
    return eventually([&] {
        SSHPlatform::RunLoop::main()->runFor(std::chrono::milliseconds(5));
        return condition();
    });
}

std::string summary(const SSHErrorRef &error) {
    if (!error)
        return "no error";
    return fmt::format("{} {} | {} | {} | {}", error->domain(), error->code(),
                       error->localizedDescription().value_or("-"),
                       error->localizedFailureReason().value_or("-"),
                       error->localizedRecoverySuggestion().value_or("-"));
}
