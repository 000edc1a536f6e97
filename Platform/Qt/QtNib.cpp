#include "Platform/Qt/QtNib.h"

#include <SSHSession/QtSecret.h>

#include <QCheckBox>
#include <QFile>
#include <QLineEdit>
#include <QUiLoader>

namespace SSHPlatform {

namespace {

class QtView final : public View, public WidgetHolder {
  public:
    explicit QtView(QWidget *held) : WidgetHolder(held) {}
};

class QtTextField final : public TextField, public WidgetHolder {
  public:
    explicit QtTextField(QLineEdit *held) : WidgetHolder(held), mField(held) {}

    std::string stringValue() const override {
        return std::string(mField ? secretOf(*mField).view() : "");
    }

    void setStringValue(const std::string &value) override {
        if (!mField)
            return;
        wipe(*mField);
        mField->setText(QString::fromStdString(value));
    }

  private:
    const QPointer<QLineEdit> mField;
};

class QtCheckBox final : public CheckBox, public WidgetHolder {
  public:
    explicit QtCheckBox(QCheckBox *held) : WidgetHolder(held), mBox(held) {}

    void setOn(bool on) override {
        if (mBox)
            mBox->setChecked(on);
    }

  private:
    const QPointer<QCheckBox> mBox;
};

std::unique_ptr<View> wrapped(QWidget *widget) {
    if (auto *const field = qobject_cast<QLineEdit *>(widget))
        return std::make_unique<QtTextField>(field);
    if (auto *const box = qobject_cast<QCheckBox *>(widget))
        return std::make_unique<QtCheckBox>(box);
    return std::make_unique<QtView>(widget);
}

} // namespace

std::unique_ptr<QtNib> QtNib::load(const QString &name) {
    QFile file(QStringLiteral(":/SSHSession/") + name + QStringLiteral(".ui"));
    if (!file.open(QIODevice::ReadOnly))
        return nullptr;
    QUiLoader loader;
    loader.clearPluginPaths(); // the file uses Qt's own widgets only
    loader.setTranslationEnabled(false);
    std::unique_ptr<QWidget> root(loader.load(&file));
    return root ? std::make_unique<QtNib>(std::move(root)) : nullptr;
}

QtNib::QtNib(std::unique_ptr<QWidget> root) : mRoot(std::move(root)) {
    for (QWidget *const widget : mRoot->findChildren<QWidget *>())
        mOutlets[widget->objectName().toStdString()] = wrapped(widget);
}

View *QtNib::view(const std::string &name) {
    const auto found = mOutlets.find(name);
    return found == mOutlets.end() ? nullptr : found->second.get();
}

TextField *QtNib::textField(const std::string &name) {
    return dynamic_cast<TextField *>(view(name));
}

CheckBox *QtNib::checkBox(const std::string &name) {
    return dynamic_cast<CheckBox *>(view(name));
}

} // namespace SSHPlatform
