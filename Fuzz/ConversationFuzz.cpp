// Whatever a server says after the key exchange: nobody is logged in unless it says so, every stage
// and command ends in a result or an error, and both are as they are documented.
#include "Fuzz/Support/NoKeyExchange.h"
#include "Fuzz/Support/PlayedServer.h"
#include "Fuzz/Support/Property.h"
#include "Platform/Text.h"

#include <cstdlib>
#include <fstream>

namespace {

constexpr std::string_view next = "<--\n"; // before each message of the server's
constexpr char loggedIn = 52;              // SSH_MSG_USERAUTH_SUCCESS

class Delegate final : public SSHSessionDelegate {
    void sshSessionDisconnected(SSHSession & /*session*/,
                                const SSHErrorRef &why) noexcept override {
        expectOutcome(true, why);
    }
};

struct Script {
    std::string stream = "SSH-2.0-server\r\n";
    bool letsIn = false;
};

Script scriptOf(std::string_view input) {
    Script script;
    while (!input.empty()) {
        const std::size_t end = std::min(input.find(next), input.size());
        const std::string_view message = input.substr(0, end);
        script.letsIn = script.letsIn || message.starts_with(loggedIn);
        if (!message.empty())
            script.stream += packet(message);
        input.remove_prefix(std::min(end + next.size(), input.size()));
    }
    return script;
}

void makeHome() {
    const std::string directory = homeOfPlayedSessions() + "/.ssh/";
    std::ofstream(directory + "known_hosts") << "server " << playedHostKey << '\n';
    const std::string command =
        "ssh-keygen -q -t rsa -b 1024 -m PEM -N '' -f " + directory + "id_rsa";
    hold(std::system(command.c_str()) == 0, "ssh-keygen makes a key");
}

void run(SSHSession &session, const char *adminPassword) {
    const auto command = std::make_shared<SSHCommand>();
    command->setCommand(std::string("command"));
    command->setStdinData(std::string("input"));
    if (adminPassword)
        command->setAdminPassword(std::string(adminPassword));
    SSHErrorRef error;
    const bool succeeded = session.execute(command, &error);
    expectOutcome(succeeded, error);
    if (!succeeded)
        return;
    hold(command->stdoutData() && command->stderrData(), "a command has its outputs");
    hold(SSHPlatform::isUTF8(*command->exitSignal()), "a signal's name is UTF-8");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const bool hasHome = (makeHome(), true);
    static_cast<void>(hasHome);
    static Delegate delegate;
    std::string_view input = textOf(data, size);
    const std::size_t piece = takeByte(input);
    const Script script = scriptOf(input);
    const auto session = PlayedSession::make();
    session->setDelegate(&delegate);
    const auto connection = session->connectedTo(playServer(script.stream, piece));
    SSHErrorRef error;
    const bool isIn = session->_startSession(*connection, &error) &&
                      session->_validatedHostFingerprint(*connection, &error) &&
                      (session->_authenticateWithAgent(*connection, &error) ||
                       session->_authenticateManually(*connection, &error));
    expectOutcome(isIn, error);
    hold(!isIn || script.letsIn, "nobody is logged in unless the server says so");
    if (isIn) {
        connection->becomeEstablished();
        run(*session, nullptr);
        run(*session, "secret");
    }
    session->stop();
    return 0;
}
