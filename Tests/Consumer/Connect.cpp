// Runs a command on a server of this machine whose key is on record. Answers 0 when its output
// arrived.
#include <SSHSession/SSHEscapeString.h>
#include <SSHSession/SSHSession.h>
#include <SSHSession/SSHSessionVersion.h>
#include <SSHSession/TerminalPrompts.h>

#include <cstdint>
#include <iostream>

int main(int count, char **arguments) {
    if (count != 4) {
        std::cerr << "Arguments: port, user, key file\n";
        return 2;
    }
    SSHPlatform::install(nullptr, SSHPlatform::terminalAlertPresenter());
    const auto port = static_cast<std::uint16_t>(std::stoi(arguments[1]));
    const auto session =
        SSHSession::sessionWithHost("127.0.0.1", port, arguments[2], std::nullopt, arguments[3],
                                    SSHSessionOptions::recommended());
    const auto command = std::make_shared<SSHCommand>();
    command->setCommand("echo " + SSHEscapeString("it's here") + "; exit 3");
    SSHErrorRef error;
    if (!session->start(&error) || !session->execute(command, &error)) {
        std::cerr << error->text() << '\n';
        return 1;
    }
    session->stop();
    std::cout << "SSHSession " SSHSESSION_VERSION " says: " << command->stdoutData()->view();
    return command->stdoutData()->view() == "it's here\n" && command->exitStatus() == 3 ? 0 : 1;
}
