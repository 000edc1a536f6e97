// A text of an alert: exactly as it is, selectable and copyable, wrapped even where a long key has
// no blank, and just as high as it must be.
#pragma once

#include <QPlainTextEdit>
#include <QString>

namespace SSHPlatform {

class AlertText final : public QPlainTextEdit {
  public:
    // Longer texts than `maximumHeight` scroll.
    AlertText(const QString &text, const QFont &font, int width, int maximumHeight);
};

} // namespace SSHPlatform
