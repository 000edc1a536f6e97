// SPDX-License-Identifier: BSD-3-Clause

// Modal questions to the user, as values, and the toolkit that shows them.
//
// A toolkit is made known by one class with one function, which shows a question and answers which
// button ended it. For a program on the standard streams it is this; SSHPlatform::install in
// Platform.h takes it.
//
// ```cpp
// #include <SSHSession/Alert.h>
//
// #include <iostream>
// #include <string>
//
// class StreamPresenter final : public SSHPlatform::AlertPresenter {
//   public:
//     SSHPlatform::AlertAnswer runModal(const SSHPlatform::Alert &alert) noexcept override {
//         std::cout << alert.messageText << '\n' << alert.informativeText << '\n';
//         for (const SSHPlatform::AlertButton &button : alert.buttons)
//             std::cout << '[' << button.title << "] ";
//         std::cout << std::flush;
//         std::string typed;
//         if (!std::getline(std::cin, typed)) // nobody is there: never an answer
//             return SSHPlatform::AlertAnswer::Refused;
//         if (SSHPlatform::PlainTextField *const field = alert.plainTextField()) {
//             field->setStringValue(typed); // a toolkit masks it when field->isSecret()
//             return SSHPlatform::AlertAnswer::FirstButton;
//         }
//         for (std::size_t i = 0; i < alert.buttons.size(); ++i)
//             if (typed == alert.buttons[i].title)
//                 return SSHPlatform::answerOfButton(i);
//         return SSHPlatform::AlertAnswer::Refused;
//     }
// };
// ```
//
// A toolkit with user interface files of its own overrides `loadNib` as well.
#pragma once

#include <SSHSession/SSHSessionExport.h>
#include <SSHSession/Secret.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace SSHPlatform {

// Something that a toolkit shows inside an alert. `loadNib` makes the objects; callers only pass
// them on or use the kinds of control below. Main thread only.
class SSHSESSION_EXPORT View {
  public:
    View() = default;
    View(const View &) = delete;
    View &operator=(const View &) = delete;
    virtual ~View();
};

// Whoever asks for a secret wipes the value that it was given, and sets another one.
class SSHSESSION_EXPORT TextField : public View {
  public:
    ~TextField() override;
    virtual std::string stringValue() const = 0;
    virtual void setStringValue(const std::string &value) = 0;
};

// One line of text to ask for, without a look. The memory of a value is overwritten when the next
// one takes its place and when the field goes.
class SSHSESSION_EXPORT PlainTextField final : public TextField {
  public:
    explicit PlainTextField(bool isSecret) noexcept;
    ~PlainTextField() override;

    // Whether the text must not be seen while it is typed.
    bool isSecret() const noexcept { return mIsSecret; }

    std::string stringValue() const override;
    void setStringValue(const std::string &value) override;

  private:
    const bool mIsSecret;
    Secret mValue = Secret::none();
};

// A box to tick.
class SSHSESSION_EXPORT CheckBox : public View {
  public:
    ~CheckBox() override;
    virtual void setOn(bool on) = 0;
};

// A picture of the toolkit's, such as an alert's icon.
class SSHSESSION_EXPORT Image {
  public:
    Image() = default;
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;
    virtual ~Image();
};

// The objects of one loaded user interface file, by the names they have there. It owns them: a view
// is gone when its nib is. A name that is missing or names another kind of object answers null.
class SSHSESSION_EXPORT Nib {
  public:
    Nib() = default;
    Nib(const Nib &) = delete;
    Nib &operator=(const Nib &) = delete;
    virtual ~Nib();

    virtual View *view(const std::string &name) = 0;
    virtual TextField *textField(const std::string &name) = 0;
    virtual CheckBox *checkBox(const std::string &name) = 0;
};

// Critical warns of a danger.
enum class AlertStyle { Standard, Critical };

// One answer that an alert offers.
struct AlertButton {
    std::string title;
    // The key that presses the button: "\r" is Return, the empty string is none. Without a value
    // the toolkit chooses as it does for its own alerts.
    std::optional<std::string> keyEquivalent = std::nullopt;
};

// All texts are UTF-8 and are to be shown as they are, never as markup.
struct Alert {
    AlertStyle style = AlertStyle::Standard;
    std::string messageText;
    std::string informativeText;
    std::vector<AlertButton> buttons; // none: the toolkit's single default button
    View *accessoryView = nullptr;    // shown between text and buttons; not owned
    std::shared_ptr<Image> icon;      // null: the toolkit's default
    // A descriptor that becomes readable, for poll(2), when nobody waits for the answer any more:
    // a presenter that watches it takes the alert down then, as refused. Not to be read or closed.
    // -1: never.
    int withdrawal = -1;

    // The accessory view as what `AlertPresenter::loadNib` makes unless it is overridden: the one
    // text to ask for. Null when there is none, or when it is a toolkit's own.
    SSHSESSION_EXPORT PlainTextField *plainTextField() const noexcept;
};

// Which button ended an alert. Any other value, `Refused` among them, means that none did.
enum class AlertAnswer : int { Refused = 0, FirstButton = 1000, SecondButton = 1001 };

// The third button answers 1002, and so on; the first has the index 0.
constexpr AlertAnswer answerOfButton(std::size_t index) noexcept {
    return static_cast<AlertAnswer>(static_cast<int>(AlertAnswer::FirstButton) +
                                    static_cast<int>(index));
}

// The toolkit. Every operation is called on the main thread. Only `runModal` has to be written.
class SSHSESSION_EXPORT AlertPresenter {
  public:
    AlertPresenter() = default;
    AlertPresenter(const AlertPresenter &) = delete;
    AlertPresenter &operator=(const AlertPresenter &) = delete;
    virtual ~AlertPresenter();

    // Shows the alert and returns when the user has answered it. An alert that cannot be shown, and
    // one that nobody is there to answer, is Refused.
    virtual AlertAnswer runModal(const Alert &alert) noexcept = 0;

    // The named user interface file, loaded anew at every call; null when it cannot be had. Unless
    // this is overridden, "SSHPasswordAlertAccessoryView" has a PlainTextField in place of each
    // accessory view, and no check box, which would have no effect.
    virtual std::unique_ptr<Nib> loadNib(const std::string &name) noexcept;

    // The named image resource; null when it cannot be had.
    virtual std::shared_ptr<Image> loadImage(const std::string &name,
                                             const std::string &type) noexcept;

    // The host application's translation of `key`, or `key` itself.
    virtual std::string localizedString(const std::string &key) noexcept;

    virtual void beep() noexcept;
};

} // namespace SSHPlatform
