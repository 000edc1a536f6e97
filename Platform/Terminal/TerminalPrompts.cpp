#include <SSHSession/TerminalPrompts.h>

#include <SSHSession/Platform.h>

#include "Platform/Terminal/TerminalLine.h"

#include <charconv>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace SSHPlatform {

namespace {

constexpr int patience = 3;

std::optional<std::size_t> buttonForReturn(const Alert &alert) {
    for (std::size_t i = 0; i < alert.buttons.size(); ++i)
        if (alert.buttons[i].keyEquivalent == "\r")
            return i;
    return std::nullopt;
}

std::optional<std::size_t> chosenButton(const Alert &alert, std::string_view line) {
    if (line.empty())
        return buttonForReturn(alert);
    std::size_t number = 0;
    const auto [end, failure] = std::from_chars(line.data(), line.data() + line.size(), number);
    if (failure != std::errc() || end != line.data() + line.size() || number < 1 ||
        number > alert.buttons.size())
        return std::nullopt;
    return number - 1;
}

std::string menu(const Alert &alert) {
    std::string text;
    for (std::size_t i = 0; i < alert.buttons.size(); ++i)
        text += "  " + std::to_string(i + 1) + ") " + printableText(alert.buttons[i].title) + "\n";
    text += "Your choice";
    if (const auto button = buttonForReturn(alert))
        text += " [" + std::to_string(*button + 1) + "]";
    return text + ": ";
}

AlertAnswer askForButton(const Alert &alert) {
    for (int attempt = 0; attempt < patience; ++attempt) {
        const auto line = readLineFromTerminal(menu(alert), Echo::On, alert.withdrawal);
        if (!line)
            break;
        if (const auto button = chosenButton(alert, line.view()))
            return answerOfButton(*button);
        writeToTerminal("Please type a number from 1 to " + std::to_string(alert.buttons.size()) +
                        ".\n");
    }
    return AlertAnswer::Refused;
}

// Return ends the line and so presses the first button.
AlertAnswer askForText(PlainTextField &field, int withdrawal) {
    const Secret line =
        readLineFromTerminal("> ", field.isSecret() ? Echo::Off : Echo::On, withdrawal);
    if (!line)
        return AlertAnswer::Refused;
    field.setStringValue(*line.text());
    return AlertAnswer::FirstButton;
}

class TerminalAlertPresenter final : public AlertPresenter {
  public:
    AlertAnswer runModal(const Alert &alert) noexcept override {
        writeToTerminal("\n" + printableText(alert.messageText) + "\n" +
                        printableText(alert.informativeText) + "\n");
        if (PlainTextField *const field = alert.plainTextField())
            return askForText(*field, alert.withdrawal);
        // Without a choice there is nothing to ask.
        return alert.buttons.empty() ? AlertAnswer::FirstButton : askForButton(alert);
    }

    void beep() noexcept override { writeToTerminal("\a"); }
};

} // namespace

std::shared_ptr<AlertPresenter> terminalAlertPresenter() noexcept {
    return std::make_shared<TerminalAlertPresenter>();
}

Secret readSecretFromTerminal(const std::string &prompt) noexcept {
    return readLineFromTerminal(printableText(prompt), Echo::Off);
}

} // namespace SSHPlatform
