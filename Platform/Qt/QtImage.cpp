#include "Platform/Qt/QtImage.h"

namespace SSHPlatform {

std::shared_ptr<QtImage> QtImage::load(const QString &fileName) {
    QIcon icon(QStringLiteral(":/SSHSession/") + fileName);
    return icon.availableSizes().isEmpty() ? nullptr : std::make_shared<QtImage>(std::move(icon));
}

} // namespace SSHPlatform
