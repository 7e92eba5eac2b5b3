#include "ui/PadlockIcon.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace Velmarin::UI {

namespace {

QPixmap paintPadlock(bool unlocked, bool enabled, int size)
{
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(size / 48.0, size / 48.0);

    QColor body = unlocked ? QColor(46, 157, 79) : QColor(11, 79, 138);
    QColor shackle = unlocked ? QColor(90, 110, 100) : QColor(60, 72, 88);
    if (!enabled) {
        body = unlocked ? QColor(196, 214, 200) : QColor(190, 196, 204);
        shackle = QColor(200, 200, 200);
    }

    // An open shackle is lifted out of the body on its left leg, leaving a visible gap.
    const qreal lift = unlocked ? 6.0 : 0.0;
    QPainterPath arc;
    arc.moveTo(15, unlocked ? 20 - lift : 24);
    arc.lineTo(15, 18 - lift);
    arc.arcTo(QRectF(15, 9 - lift, 18, 18), 180, -180);
    arc.lineTo(33, 24);
    painter.setPen(QPen(shackle, 5, Qt::SolidLine, Qt::RoundCap));
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(arc);

    painter.setPen(Qt::NoPen);
    painter.setBrush(body);
    painter.drawRoundedRect(QRectF(9, 22, 30, 22), 4, 4);

    // Keyhole.
    painter.setBrush(enabled ? QColor(255, 255, 255) : QColor(240, 240, 240));
    painter.drawEllipse(QPointF(24, 31), 3.2, 3.2);
    painter.drawRect(QRectF(22.6, 32, 2.8, 7));
    return pixmap;
}

} // namespace

QIcon PadlockIcon::create(bool unlocked, bool enabled)
{
    QIcon icon;
    // Both modes carry our own drawing, so Qt does not grey an enabled drawing by itself.
    for (const int size : {48, 96}) {
        const QPixmap pixmap = paintPadlock(unlocked, enabled, size);
        icon.addPixmap(pixmap, QIcon::Normal);
        icon.addPixmap(pixmap, QIcon::Disabled);
    }
    return icon;
}

} // namespace Velmarin::UI
