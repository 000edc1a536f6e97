#include "Platform/Qt/AlertText.h"

#include <QTextDocument>
#include <QTextOption>

#include <algorithm>
#include <cmath>

namespace SSHPlatform {

namespace {

constexpr QTextOption::WrapMode wrapMode = QTextOption::WrapAtWordBoundaryOrAnywhere;

int heightOf(const QString &text, const QFont &font, int width) {
    QTextDocument document;
    QTextOption option;
    option.setWrapMode(wrapMode);
    document.setDefaultFont(font);
    document.setDefaultTextOption(option);
    document.setPlainText(text);
    document.setTextWidth(width);
    // The editor leaves a pixel more unused, and would else scroll its first line away.
    return static_cast<int>(std::ceil(document.size().height())) + 1;
}

} // namespace

AlertText::AlertText(const QString &text, const QFont &font, int width, int maximumHeight) {
    setPlainText(text);
    setReadOnly(true);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setTabChangesFocus(true);
    setWordWrapMode(wrapMode);
    setFont(font);
    setFrameShape(QFrame::NoFrame);
    viewport()->setAutoFillBackground(false);

    const int height = heightOf(text, font, width);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(height > maximumHeight ? Qt::ScrollBarAlwaysOn
                                                      : Qt::ScrollBarAlwaysOff);
    setFixedSize(width, std::min(height, maximumHeight));
}

} // namespace SSHPlatform
