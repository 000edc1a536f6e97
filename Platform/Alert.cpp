#include <SSHSession/Alert.h>

#include "Platform/PlainNib.h"

namespace SSHPlatform {

View::~View() = default;
TextField::~TextField() = default;
CheckBox::~CheckBox() = default;
Image::~Image() = default;
Nib::~Nib() = default;
AlertPresenter::~AlertPresenter() = default;

PlainTextField *Alert::plainTextField() const noexcept {
    return dynamic_cast<PlainTextField *>(accessoryView);
}

std::unique_ptr<Nib> AlertPresenter::loadNib(const std::string &name) noexcept {
    return loadPlainNib(name);
}

std::shared_ptr<Image> AlertPresenter::loadImage(const std::string & /*name*/,
                                                 const std::string & /*type*/) noexcept {
    return nullptr;
}

std::string AlertPresenter::localizedString(const std::string &key) noexcept {
    return key;
}

void AlertPresenter::beep() noexcept {}

} // namespace SSHPlatform
