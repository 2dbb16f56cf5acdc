#include "ui/window/Icons.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <algorithm>
#include <cmath>
#include <numbers>

namespace velmora::window {

namespace {

// A triangle pointing right inside `r`.
QPainterPath rightTriangle(const QRectF& r) {
    QPainterPath p;
    p.moveTo(r.left(), r.top());
    p.lineTo(r.right(), r.center().y());
    p.lineTo(r.left(), r.bottom());
    p.closeSubpath();
    return p;
}

QPainterPath leftTriangle(const QRectF& r) {
    QPainterPath p;
    p.moveTo(r.right(), r.top());
    p.lineTo(r.left(), r.center().y());
    p.lineTo(r.right(), r.bottom());
    p.closeSubpath();
    return p;
}

}  // namespace

void paintIcon(QPainter& painter, Icon icon, const QRectF& box, const QColor& colour) {
    const double s = std::min(box.width(), box.height());
    const QRectF r(box.center().x() - s / 2, box.center().y() - s / 2, s, s);
    const double u = s / 16.0;  // one unit of a 16-point grid
    auto at = [&](double x, double y, double w, double h) { return QRectF(r.left() + x * u, r.top() + y * u, w * u, h * u); };

    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    QPen stroke(colour, std::max(1.0, 1.5 * u), Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);

    switch (icon) {
    case Icon::toStart:
        painter.drawRect(at(3, 3, 2, 10));
        painter.drawPath(leftTriangle(at(5, 3, 8, 10)));
        break;
    case Icon::toEnd:
        painter.drawPath(rightTriangle(at(3, 3, 8, 10)));
        painter.drawRect(at(11, 3, 2, 10));
        break;
    case Icon::stop:
        painter.drawRoundedRect(at(3.5, 3.5, 9, 9), u, u);
        break;
    case Icon::play:
        painter.drawPath(rightTriangle(at(4, 2.5, 10, 11)));
        break;
    case Icon::pause:
        painter.drawRect(at(4, 3, 3, 10));
        painter.drawRect(at(9, 3, 3, 10));
        break;
    case Icon::lock: {
        painter.drawRoundedRect(at(3, 7, 10, 7.5), u, u);
        painter.setBrush(Qt::NoBrush);
        painter.setPen(stroke);
        painter.drawArc(at(5, 2, 6, 8), 0, 180 * 16);
        painter.drawLine(at(5, 6, 0, 1.5).topLeft(), at(5, 6, 0, 1.5).bottomLeft());
        painter.drawLine(at(11, 6, 0, 1.5).topLeft(), at(11, 6, 0, 1.5).bottomLeft());
        break;
    }
    case Icon::hourglass: {
        painter.setBrush(Qt::NoBrush);
        painter.setPen(stroke);
        painter.drawLine(at(3.5, 2, 9, 0).topLeft(), at(3.5, 2, 9, 0).topRight());
        painter.drawLine(at(3.5, 14, 9, 0).topLeft(), at(3.5, 14, 9, 0).topRight());
        QPainterPath glass;
        glass.moveTo(at(4.5, 2, 0, 0).topLeft());
        glass.lineTo(at(8, 8, 0, 0).topLeft());
        glass.lineTo(at(4.5, 14, 0, 0).topLeft());
        glass.moveTo(at(11.5, 2, 0, 0).topLeft());
        glass.lineTo(at(8, 8, 0, 0).topLeft());
        glass.lineTo(at(11.5, 14, 0, 0).topLeft());
        painter.drawPath(glass);
        painter.setPen(Qt::NoPen);
        painter.setBrush(colour);
        QPainterPath sand;
        sand.moveTo(at(5.5, 13.5, 0, 0).topLeft());
        sand.lineTo(at(8, 10.5, 0, 0).topLeft());
        sand.lineTo(at(10.5, 13.5, 0, 0).topLeft());
        sand.closeSubpath();
        painter.drawPath(sand);
        break;
    }
    case Icon::bin:
        painter.drawRect(at(3, 3.5, 10, 1.5));
        painter.drawRect(at(6.5, 2, 3, 1.5));
        painter.setBrush(Qt::NoBrush);
        painter.setPen(stroke);
        painter.drawRoundedRect(at(4.5, 6, 7, 8), u, u);
        painter.drawLine(at(7, 8, 0, 4).topLeft(), at(7, 8, 0, 4).bottomLeft());
        painter.drawLine(at(9, 8, 0, 4).topLeft(), at(9, 8, 0, 4).bottomLeft());
        break;
    case Icon::exportArrow: {
        painter.setBrush(Qt::NoBrush);
        painter.setPen(stroke);
        QPainterPath tray;
        tray.moveTo(at(5, 7, 0, 0).topLeft());
        tray.lineTo(at(3, 7, 0, 0).topLeft());
        tray.lineTo(at(3, 14, 0, 0).topLeft());
        tray.lineTo(at(13, 14, 0, 0).topLeft());
        tray.lineTo(at(13, 7, 0, 0).topLeft());
        tray.lineTo(at(11, 7, 0, 0).topLeft());
        painter.drawPath(tray);
        painter.drawLine(at(8, 2, 0, 8.5).topLeft(), at(8, 2, 0, 8.5).bottomLeft());
        QPainterPath head;
        head.moveTo(at(5, 5, 0, 0).topLeft());
        head.lineTo(at(8, 2, 0, 0).topLeft());
        head.lineTo(at(11, 5, 0, 0).topLeft());
        painter.drawPath(head);
        break;
    }
    case Icon::seal: {
        // A rosette with a tick: eight bumps around a disc.
        QPainterPath rosette;
        const QPointF c = r.center();
        for (int i = 0; i <= 32; ++i) {
            const double a = i * std::numbers::pi / 16.0;
            const double radius = (i % 2 == 0 ? 7.0 : 5.8) * u;
            const QPointF p(c.x() + radius * std::sin(a), c.y() - radius * std::cos(a));
            if (i == 0) rosette.moveTo(p);
            else rosette.lineTo(p);
        }
        painter.drawPath(rosette);
        QPen tick(colour.lightness() < 128 ? QColor(255, 255, 255, 230) : QColor(0, 0, 0, 200), std::max(1.0, 1.6 * u), Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
        painter.setPen(tick);
        painter.setBrush(Qt::NoBrush);
        QPainterPath mark;
        mark.moveTo(at(5, 8.2, 0, 0).topLeft());
        mark.lineTo(at(7.2, 10.4, 0, 0).topLeft());
        mark.lineTo(at(11, 6, 0, 0).topLeft());
        painter.drawPath(mark);
        break;
    }
    case Icon::waveform: {
        painter.setBrush(Qt::NoBrush);
        painter.setPen(stroke);
        const double heights[] = {3, 7, 11, 6, 13, 9, 4, 10, 5};
        for (int i = 0; i < 9; ++i) {
            const double x = 1.5 + 1.6 * i;
            const double h = heights[i];
            painter.drawLine(at(x, 8 - h / 2, 0, h).topLeft(), at(x, 8 - h / 2, 0, h).bottomLeft());
        }
        break;
    }
    }
    painter.restore();
}

QIcon makeIcon(Icon icon, const QColor& colour, int size) {
    QPixmap pixmap(size * 2, size * 2);
    pixmap.setDevicePixelRatio(2.0);
    pixmap.fill(Qt::transparent);
    {
        QPainter p(&pixmap);
        paintIcon(p, icon, QRectF(0, 0, size, size), colour);
    }
    return QIcon(pixmap);
}

}  // namespace velmora::window
