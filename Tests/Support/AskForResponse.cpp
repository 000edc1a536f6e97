// A host application in a terminal that asks its user one question and prints the answer.
#include <SSHSession/Platform.h>
#include <SSHSession/SSHSessionPasswordPanel.h>
#include <SSHSession/TerminalPrompts.h>

#include <iostream>

int main() {
    SSHPlatform::install(nullptr, SSHPlatform::terminalAlertPresenter());
    const auto answer = SSHSessionPasswordPanel().responseToKeyboardPrompt("Code?");
    std::cout << (answer ? '"' + *answer + '"' : "none") << '\n';
}
