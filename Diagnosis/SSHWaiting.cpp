#include <SSHSession/SSHWaiting.h>

#include <SSHSession/PrintableText.h>

#include <fmt/format.h>

#include <algorithm>

namespace {

std::string connectText(const SSHFacts &facts) {
    if (facts.addresses.empty())
        return fmt::format("for a name server to tell the address of {}", facts.host);
    return fmt::format("for an answer from {}, port {}", facts.addresses.back().address,
                       facts.port);
}

std::string handshakeText(const SSHServerFacts &server) {
    if (!server.hasSpoken)
        return "for the server's first words";
    if (server.version.empty())
        return "for the server to say that it speaks SSH, which it has not done so far";
    return server.offer ? "for the server to agree on keys"
                        : "for the server's list of what it can do";
}

// The last line of what has arrived, where there is one.
std::string lastLine(std::string text) {
    text.erase(text.find_last_not_of(" \r\n") + 1);
    return text.substr(text.find_last_of("\r\n") + 1);
}

std::string sudoText(const SSHCommandFacts &command) {
    const std::string words = lastLine(command.errorEnd);
    return words.empty() ? "for sudo to ask for the password, or to take it"
                         : fmt::format("for sudo, which says: {}", words);
}

std::string commandText(const SSHCommandFacts &command) {
    if (!command.hasStarted)
        return "for the server to run the command";
    if (command.isHeldUp)
        return "for this program to take the command's output, or to give its input";
    if (command.waitsForSudo)
        return sudoText(command);
    if (command.inputBytes < command.inputSize)
        return "for the command to read the rest of its input";
    if (!command.hasInput)
        return "for the command, which is silent. It may be reading its standard input, and none "
               "was given";
    return "for the command, which is silent";
}

std::string text(const SSHFacts &facts) {
    switch (facts.stage) {
    case SSHSessionStage::Connect:
        return connectText(facts);
    case SSHSessionStage::Handshake:
        return handshakeText(facts.server);
    case SSHSessionStage::HostKey:
        return "to compare the server's key with the known hosts";
    case SSHSessionStage::Agent:
        return "for the SSH agent, or for the server's answer to its keys";
    case SSHSessionStage::Authenticate:
        return "for the server's answer to the log-in";
    case SSHSessionStage::Execute:
        return commandText(facts.command);
    }
    return {};
}

} // namespace

std::string SSHWaitingText(const SSHFacts &facts) noexcept {
    if (!facts.isStageUnderWay || facts.isUserAsked)
        return {};
    return SSHPlatform::printableText(text(facts), "");
}

std::chrono::steady_clock::time_point SSHWaitingSince(const SSHFacts &facts) noexcept {
    return std::max({facts.stageBegin, facts.command.lastActivity, facts.userAnswered});
}
