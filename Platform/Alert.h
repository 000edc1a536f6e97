// Modal questions to the user, as values, and the toolkit that shows them.
#pragma once

#include <SSHSession/SSHSessionExport.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace SSHPlatform {

// Something that a toolkit shows inside an alert. The toolkit's adapter makes the objects; callers
// only pass them on or use the two kinds of control below. Main thread only.
class SSHSESSION_EXPORT View {
  public:
    View() = default;
    View(const View &) = delete;
    View &operator=(const View &) = delete;
    virtual ~View();
};

class SSHSESSION_EXPORT TextField : public View {
  public:
    ~TextField() override;
    virtual std::string stringValue() const = 0;
    virtual void setStringValue(const std::string &value) = 0;
};

class SSHSESSION_EXPORT CheckBox : public View {
  public:
    ~CheckBox() override;
    virtual void setOn(bool on) = 0;
};

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

enum class AlertStyle { Standard, Critical };

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
};

// Which button ended an alert. Any other value, `Refused` among them, means that none did.
enum class AlertAnswer : int { Refused = 0, FirstButton = 1000, SecondButton = 1001 };

// The toolkit. Every operation is called on the main thread.
class SSHSESSION_EXPORT AlertPresenter {
  public:
    AlertPresenter() = default;
    AlertPresenter(const AlertPresenter &) = delete;
    AlertPresenter &operator=(const AlertPresenter &) = delete;
    virtual ~AlertPresenter();

    // Shows the alert and returns when the user has answered it. The third button answers 1002, and
    // so on.
    virtual AlertAnswer runModal(const Alert &alert) noexcept = 0;

    // The named user interface file, loaded anew at every call; null when it cannot be had.
    virtual std::unique_ptr<Nib> loadNib(const std::string &name) noexcept;

    // The named image resource; null when it cannot be had.
    virtual std::shared_ptr<Image> loadImage(const std::string &name,
                                             const std::string &type) noexcept;

    // The host application's translation of `key`, or `key` itself.
    virtual std::string localizedString(const std::string &key) noexcept;

    virtual void beep() noexcept;
};

} // namespace SSHPlatform
