#include "Platform/PlainNib.h"

namespace SSHPlatform {

PlainTextField::PlainTextField(bool isSecret) noexcept : mIsSecret(isSecret) {}

PlainTextField::~PlainTextField() = default;

std::string PlainTextField::stringValue() const {
    return std::string(mValue.view());
}

void PlainTextField::setStringValue(const std::string &value) {
    mValue = Secret::of(value);
}

namespace {

// An accessory view is its field: there is nothing else in it.
class PasswordAlertNib final : public Nib {
  public:
    View *view(const std::string &name) override {
        if (name == "alertAccessoryView")
            return &mPasswordField;
        return name == "alertResponseAccessoryView" ? &mTextField : textField(name);
    }

    TextField *textField(const std::string &name) override {
        if (name == "alertPasswordField")
            return &mPasswordField;
        return name == "alertTextField" ? &mTextField : nullptr;
    }

    CheckBox *checkBox(const std::string & /*name*/) override { return nullptr; }

  private:
    PlainTextField mPasswordField{true};
    PlainTextField mTextField{false};
};

} // namespace

std::unique_ptr<Nib> loadPlainNib(std::string_view name) {
    if (name != "SSHPasswordAlertAccessoryView")
        return nullptr;
    return std::make_unique<PasswordAlertNib>();
}

} // namespace SSHPlatform
