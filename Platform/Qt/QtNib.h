// User interface files as nibs: the objects of a .ui file by their object names.
#pragma once

#include <SSHSession/Alert.h>

#include <QPointer>
#include <QString>
#include <QWidget>

#include <map>
#include <memory>

namespace SSHPlatform {

// What every view of this toolkit is besides its kind. The widget may go before the view does.
class WidgetHolder {
  public:
    explicit WidgetHolder(QWidget *held) : widget(held) {}
    WidgetHolder(const WidgetHolder &) = delete;
    WidgetHolder &operator=(const WidgetHolder &) = delete;
    virtual ~WidgetHolder() = default;

    const QPointer<QWidget> widget;
};

class QtNib final : public Nib {
  public:
    // From this library's compiled-in resources; null when the file is missing or broken.
    static std::unique_ptr<QtNib> load(const QString &name);

    // Owns `root`, the widget that all others hang on.
    explicit QtNib(std::unique_ptr<QWidget> root);

    View *view(const std::string &name) override;
    TextField *textField(const std::string &name) override;
    CheckBox *checkBox(const std::string &name) override;

  private:
    std::unique_ptr<QWidget> mRoot;
    std::map<std::string, std::unique_ptr<View>> mOutlets;
};

} // namespace SSHPlatform
