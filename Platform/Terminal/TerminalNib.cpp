#include "Platform/Terminal/TerminalNib.h"

#include <SSHSession/Secret.h>

namespace SSHPlatform {

void TerminalTextField::setStringValue(const std::string &value) {
    forget();
    mValue = value;
}

void TerminalTextField::forget() {
    wipe(mValue);
}

namespace {

// A check box is left out: there is nothing in a terminal that would remember a secret.
class PasswordAlertNib final : public Nib {
  public:
    View *view(const std::string &name) override {
        if (name == "alertAccessoryView")
            return &mPasswordView;
        return name == "alertResponseAccessoryView" ? &mResponseView : nullptr;
    }

    TextField *textField(const std::string &name) override {
        if (name == "alertPasswordField")
            return &mPasswordField;
        return name == "alertTextField" ? &mResponseField : nullptr;
    }

    CheckBox *checkBox(const std::string & /*name*/) override { return nullptr; }

  private:
    TerminalTextField mPasswordField{true};
    TerminalTextField mResponseField{false};
    TerminalView mPasswordView{mPasswordField};
    TerminalView mResponseView{mResponseField};
};

} // namespace

std::unique_ptr<Nib> loadTerminalNib(std::string_view name) {
    if (name != "SSHPasswordAlertAccessoryView")
        return nullptr;
    return std::make_unique<PasswordAlertNib>();
}

} // namespace SSHPlatform
