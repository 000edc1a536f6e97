#include "Examples/Console/StatusLine.h"

#include "Examples/Console/Connection.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPixmap>

namespace {

constexpr int dotSize = 12;

QColor colorOf(const Connection &connection) {
    if (connection.isCalling() || connection.isClosing())
        return {0xe0, 0x9b, 0x1c};
    return connection.isConnected() ? QColor(0x2e, 0xa0, 0x43) : QColor(0x8b, 0x94, 0x9e);
}

QPixmap dot(const QColor &color, qreal scale) {
    QPixmap pixmap(QSizeF(dotSize * scale, dotSize * scale).toSize());
    pixmap.setDevicePixelRatio(scale);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawEllipse(QRectF(1, 1, dotSize - 2, dotSize - 2));
    return pixmap;
}

} // namespace

StatusLine::StatusLine() : mDot(new QLabel(this)), mText(new QLabel(this)) {
    mText->setTextFormat(Qt::PlainText);
    mText->setTextInteractionFlags(Qt::TextSelectableByMouse);
    mText->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    auto *const row = new QHBoxLayout(this);
    row->setContentsMargins(2, 0, 2, 0);
    row->addWidget(mDot);
    row->addWidget(mText, 1);
}

void StatusLine::follow(const Connection &connection) {
    mDot->setPixmap(dot(colorOf(connection), devicePixelRatio()));
    mText->setText(connection.status());
}
