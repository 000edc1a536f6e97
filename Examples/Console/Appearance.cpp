#include "Examples/Console/Appearance.h"

#include <QApplication>
#include <QPalette>
#include <QStyleFactory>

void useDarkPalette() {
    const QColor window(0x1f, 0x21, 0x24);
    const QColor text(0xe6, 0xe8, 0xea);
    const QColor faint(0x80, 0x86, 0x8c);
    QPalette palette(text, window); // derives the shades of frames and buttons
    palette.setColor(QPalette::Base, QColor(0x2c, 0x2f, 0x34));
    palette.setColor(QPalette::AlternateBase, window);
    palette.setColor(QPalette::Button, QColor(0x3a, 0x3e, 0x44));
    palette.setColor(QPalette::Highlight, QColor(0x2f, 0x6f, 0xbd));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, QColor(0x6c, 0xb0, 0xf5));
    palette.setColor(QPalette::PlaceholderText, faint);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, faint);
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QApplication::setPalette(palette);
}
