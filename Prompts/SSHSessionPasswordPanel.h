// SPDX-License-Identifier: BSD-3-Clause

// Asks the user for one line of text in a modal alert.
//
// Every operation runs on the main thread. The alert is shown by whatever presenter the process has
// installed (see Platform.h); its accessory views come from the user interface file
// "SSHPasswordAlertAccessoryView", its icon from "SSHLockAndKeys.icns", as the presenter finds
// them.
#pragma once

#include <SSHSession/Alert.h>
#include <SSHSession/SSHSessionExport.h>

#include <memory>
#include <optional>
#include <string>

class SSHSESSION_EXPORT SSHSessionPasswordPanel {
  public:
    // Loads the accessory views. When that fails, the log says so and the computer beeps; the panel
    // still asks, but has no field to type in, so every question answers none.
    // Its alerts carry `withdrawal`; see SSHPlatform::Alert.
    explicit SSHSessionPasswordPanel(int withdrawal = -1) noexcept;
    ~SSHSessionPasswordPanel();
    SSHSessionPasswordPanel(const SSHSessionPasswordPanel &) = delete;
    SSHSessionPasswordPanel &operator=(const SSHSessionPasswordPanel &) = delete;

    // The pass phrase of the named private key, typed into a masked field. None when the user
    // cancels or enters nothing. The check box that offers the keychain has no effect. The panel
    // keeps no copy; the caller wipes what it is given (SSHPlatform::wipe).
    std::optional<std::string> passwordForSSHKey(const std::string &keyName) noexcept;

    // The answer to a keyboard-interactive prompt, typed in the clear. None as above. Sessions ask
    // so only when their options say so (asksServersQuestions).
    std::optional<std::string> responseToKeyboardPrompt(const std::string &prompt) noexcept;
    // The same; a secret answer is typed into a masked field, and is the caller's to wipe.
    std::optional<std::string> responseToKeyboardPrompt(const std::string &prompt,
                                                        bool isSecret) noexcept;

    // The password of that user there. As for a pass phrase.
    std::optional<std::string> passwordForUser(const std::string &user,
                                               const std::string &host) noexcept;

  private:
    std::optional<std::string> askInTheClear(SSHPlatform::Alert alert);
    std::optional<std::string> askForSecret(SSHPlatform::Alert alert);
    std::optional<std::string> ask(SSHPlatform::Alert alert, SSHPlatform::TextField *field);

    const int mWithdrawal;
    std::shared_ptr<SSHPlatform::AlertPresenter> mPresenter;
    std::unique_ptr<SSHPlatform::Nib> _nibTopLevelObjects;
    // Outlets: null when the nib could not be loaded, else owned by it.
    SSHPlatform::View *alertAccessoryView = nullptr;
    SSHPlatform::TextField *alertPasswordField = nullptr;
    SSHPlatform::CheckBox *alertRememberInKeychainCheckbox = nullptr;
    SSHPlatform::View *alertResponseAccessoryView = nullptr;
    SSHPlatform::TextField *alertTextField = nullptr;
};
