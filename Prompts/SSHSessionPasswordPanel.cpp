#include <SSHSession/SSHSessionPasswordPanel.h>

#include <SSHSession/Platform.h>
#include <SSHSession/Secret.h>

#include <utility>

SSHSessionPasswordPanel::SSHSessionPasswordPanel(int withdrawal) noexcept
    : mWithdrawal(withdrawal), mPresenter(SSHPlatform::alertPresenter()),
      _nibTopLevelObjects(mPresenter->loadNib("SSHPasswordAlertAccessoryView")) {
    if (!_nibTopLevelObjects) {
        SSHPlatform::log("SSHSession: Loading SSHPasswordAlertAccessoryView failed.");
        mPresenter->beep();
        return;
    }
    SSHPlatform::Nib &nib = *_nibTopLevelObjects;
    alertAccessoryView = nib.view("alertAccessoryView");
    alertPasswordField = nib.textField("alertPasswordField");
    alertRememberInKeychainCheckbox = nib.checkBox("alertRememberInKeychainCheckbox");
    alertResponseAccessoryView = nib.view("alertResponseAccessoryView");
    alertTextField = nib.textField("alertTextField");
}

SSHSessionPasswordPanel::~SSHSessionPasswordPanel() = default;

std::optional<std::string>
SSHSessionPasswordPanel::passwordForSSHKey(const std::string &keyName) noexcept {
    SSHPlatform::Alert alert;
    alert.messageText = "Enter your password for the SSH key \"" + keyName + "\".";
    alert.informativeText = "This SSH key is password-protected.";
    return askForSecret(std::move(alert));
}

std::optional<std::string>
SSHSessionPasswordPanel::passwordForUser(const std::string &user,
                                         const std::string &host) noexcept {
    SSHPlatform::Alert alert;
    alert.messageText = "Enter the password of " + user + "@" + host + ".";
    alert.informativeText = "The SSH server wants a password.";
    return askForSecret(std::move(alert));
}

std::optional<std::string>
SSHSessionPasswordPanel::responseToKeyboardPrompt(const std::string &prompt) noexcept {
    return responseToKeyboardPrompt(prompt, false);
}

std::optional<std::string>
SSHSessionPasswordPanel::responseToKeyboardPrompt(const std::string &prompt,
                                                  bool isSecret) noexcept {
    SSHPlatform::Alert alert;
    alert.messageText = "Authenticate SSH using keybpard-interactive.";
    alert.informativeText = prompt;
    return isSecret ? askForSecret(std::move(alert)) : askInTheClear(std::move(alert));
}

std::optional<std::string> SSHSessionPasswordPanel::askInTheClear(SSHPlatform::Alert alert) {
    alert.accessoryView = alertResponseAccessoryView;
    return ask(std::move(alert), alertTextField);
}

std::optional<std::string> SSHSessionPasswordPanel::askForSecret(SSHPlatform::Alert alert) {
    alert.accessoryView = alertAccessoryView;
    if (alertRememberInKeychainCheckbox)
        alertRememberInKeychainCheckbox->setOn(false);
    return ask(std::move(alert), alertPasswordField);
}

std::optional<std::string> SSHSessionPasswordPanel::ask(SSHPlatform::Alert alert,
                                                        SSHPlatform::TextField *field) {
    alert.withdrawal = mWithdrawal;
    alert.icon = mPresenter->loadImage("SSHLockAndKeys", "icns");
    alert.buttons = {{mPresenter->localizedString("OK")}, {mPresenter->localizedString("Cancel")}};
    if (field)
        field->setStringValue("");
    const SSHPlatform::AlertAnswer answer = mPresenter->runModal(alert);
    std::optional<std::string> given; // in the caller's place: moving a short text copies it
    if (!field)
        return given;
    std::string text = field->stringValue();
    field->setStringValue(""); // a secret stays no longer than it must, whatever the answer is
    if (answer == SSHPlatform::AlertAnswer::FirstButton && !text.empty())
        given.emplace(text);
    SSHPlatform::wipe(text);
    return given;
}
