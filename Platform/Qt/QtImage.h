// An image of this library's compiled-in resources, in all the sizes that its file holds.
#pragma once

#include <SSHSession/Alert.h>

#include <QIcon>
#include <QString>

#include <memory>

namespace SSHPlatform {

class QtImage final : public Image {
  public:
    explicit QtImage(QIcon image) : icon(std::move(image)) {}

    // Null when there is no such file, or no plugin of Qt can read it.
    static std::shared_ptr<QtImage> load(const QString &fileName);

    const QIcon icon;
};

} // namespace SSHPlatform
