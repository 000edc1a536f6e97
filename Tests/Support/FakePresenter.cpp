#include "Tests/Support/FakePresenter.h"

#include <memory>

namespace {

struct FakeField final : SSHPlatform::TextField {
    std::string stringValue() const override { return value; }
    void setStringValue(const std::string &text) override { value = text; }
    std::string value = "left over";
};

struct FakeCheckBox final : SSHPlatform::CheckBox {
    void setOn(bool on) override { state = on ? ", checked" : ", unchecked"; }
    std::string state;
};

struct FakeView final : SSHPlatform::View {
    explicit FakeView(std::string text) : name(std::move(text)) {}
    const std::string name;
    FakeField field;
    FakeCheckBox box;
};

struct FakeNib final : SSHPlatform::Nib {
    FakeView *view(const std::string &name) override {
        return name.find("Response") == std::string::npos ? &password : &response;
    }
    SSHPlatform::TextField *textField(const std::string &name) override {
        return name == "alertPasswordField" ? &password.field : &response.field;
    }
    SSHPlatform::CheckBox *checkBox(const std::string & /*name*/) override { return &password.box; }

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
        const char *const content = view->field.value.empty() ? "" : ", not cleared";
        text += " | [" + view->name + view->box.state + content + "]";
        view->field.value = typed;
    }
    shown.push_back(text);
    thread = std::this_thread::get_id();
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
