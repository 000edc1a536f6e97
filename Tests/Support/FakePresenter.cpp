#include "Tests/Support/FakePresenter.h"

namespace {

struct FakeCheckBox final : SSHPlatform::CheckBox {
    void setOn(bool on) override { state = on ? ", checked" : ", unchecked"; }
    std::string state;
};

// A view of the nib that is the field in it as well.
struct FakeView final : SSHPlatform::TextField {
    explicit FakeView(std::string text) : name(std::move(text)) {}
    std::string stringValue() const override { return value; }
    void setStringValue(const std::string &text) override { value = text; }
    const std::string name;
    std::string value = "left over";
    FakeCheckBox box;
};

struct FakeNib final : SSHPlatform::Nib {
    SSHPlatform::View *view(const std::string &name) override { return &of(name); }
    SSHPlatform::TextField *textField(const std::string &name) override { return &of(name); }
    SSHPlatform::CheckBox *checkBox(const std::string & /*name*/) override { return &password.box; }
    FakeView &of(const std::string &name) {
        return name == password.name || name == "alertPasswordField" ? password : response;
    }

    FakeView password{"alertAccessoryView"};
    FakeView response{"alertResponseAccessoryView"};
};

} // namespace

SSHPlatform::AlertAnswer FakePresenter::runModal(const SSHPlatform::Alert &alert) noexcept {
    std::string text = alert.style == SSHPlatform::AlertStyle::Critical ? "Critical: " : "";
    text += alert.messageText + " | " + alert.informativeText;
    for (const auto &button : alert.buttons)
        text += " | " + button.title + (button.keyEquivalent ? "=" + *button.keyEquivalent : "");
    if (auto *view = dynamic_cast<FakeView *>(alert.accessoryView)) {
        text += " | [" + view->name + view->box.state;
        text += view->value.empty() ? "]" : ", not cleared]";
        view->value = typed;
    }
    shown.push_back(text);
    thread = std::this_thread::get_id();
    withdrawal = alert.withdrawal;
    if (whileShown)
        whileShown();
    if (answers.empty())
        return SSHPlatform::AlertAnswer::Refused;
    const SSHPlatform::AlertAnswer answer = answers.front();
    answers.pop_front();
    return answer;
}

std::unique_ptr<SSHPlatform::Nib> FakePresenter::loadNib(const std::string & /*name*/) noexcept {
    return hasNib ? std::make_unique<FakeNib>() : nullptr;
}
