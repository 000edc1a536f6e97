#include "Tests/Support/FakePresenter.h"

#include <memory>

namespace {

struct FakeField final : SSHPlatform::TextField {
    std::string stringValue() const override { return value; }
    void setStringValue(const std::string &text) override { value = text; }
    std::string value = "left over";
};

struct FakeCheckBox final : SSHPlatform::CheckBox {
    explicit FakeCheckBox(std::vector<bool> &states) : log(states) {}
    void setOn(bool on) override { log.push_back(on); }
    std::vector<bool> &log;
};

struct FakeView final : SSHPlatform::View {
    FakeView(std::string text, FakeField &asksFor) : name(std::move(text)), field(asksFor) {}
    const std::string name;
    FakeField &field;
};

struct FakeNib final : SSHPlatform::Nib {
    explicit FakeNib(std::vector<bool> &states) : box(states) {}
    SSHPlatform::View *view(const std::string &name) override {
        return name == passwordView.name ? &passwordView : &responseView;
    }
    SSHPlatform::TextField *textField(const std::string &name) override {
        return name == "alertPasswordField" ? &password : &response;
    }
    SSHPlatform::CheckBox *checkBox(const std::string & /*name*/) override { return &box; }

    FakeField password;
    FakeField response;
    FakeCheckBox box;
    FakeView passwordView{"alertAccessoryView", password};
    FakeView responseView{"alertResponseAccessoryView", response};
};

} // namespace

SSHPlatform::AlertAnswer FakePresenter::runModal(const SSHPlatform::Alert &alert) noexcept {
    Shown entry{alert.style, alert.messageText,         alert.informativeText, {},
                "",          std::this_thread::get_id()};
    for (const auto &button : alert.buttons)
        entry.buttons.push_back(button.keyEquivalent ? button.title + "=" + *button.keyEquivalent
                                                     : button.title);
    if (auto *view = dynamic_cast<FakeView *>(alert.accessoryView)) {
        entry.view = view->name + (view->field.value.empty() ? "" : " not cleared");
        view->field.value = typed;
    }
    shown.push_back(entry);
    if (whileShown)
        whileShown();
    if (answers.empty())
        return SSHPlatform::AlertAnswer::Refused;
    const SSHPlatform::AlertAnswer answer = answers.front();
    answers.pop_front();
    return answer;
}

std::unique_ptr<SSHPlatform::Nib> FakePresenter::loadNib(const std::string & /*name*/) noexcept {
    return hasNib ? std::make_unique<FakeNib>(checkBoxStates) : nullptr;
}
