#include "ui/GraphTitle.h"

#include <QFontMetricsF>
#include <QPainter>

#include "ui/StudioTheme.h"

namespace velmora {

bool GraphTitle::fits(int width) const {
    if (measuredFor_ != width) {
        measuredFor_ = width;
        fits_ = QFontMetricsF(theme::captionFont()).horizontalAdvance(text_) <= width;
    }
    return fits_;
}

double GraphTitle::height(int width) const { return fits(width) ? 18 : 32; }

void GraphTitle::paint(QPainter& p, int width, bool dimmed) const {
    p.setFont(theme::captionFont());
    const QColor name = dimmed ? theme::textDisabled : theme::textPrimary;
    const QColor gestures = dimmed ? theme::textDisabled : theme::textSecondary;
    const qsizetype split = text_.indexOf(QStringLiteral(" · "));
    if (fits(width) || split < 0) {
        p.setPen(gestures);
        p.drawText(QRectF(0, 0, width, 18), Qt::AlignLeft | Qt::AlignVCenter, text_);
        return;
    }
    p.setPen(name);
    p.drawText(QRectF(0, 0, width, 16), Qt::AlignLeft | Qt::AlignVCenter, text_.left(split));
    p.setPen(gestures);
    p.drawText(QRectF(0, 15, width, 16), Qt::AlignLeft | Qt::AlignVCenter, text_.mid(split + 3));
}

void paintBypassMark(QPainter& p, const QRectF& plot, bool bottomRight) {
    p.save();
    p.setFont(theme::captionFont());
    const QString text = QString::fromUtf8(bypassMark);
    const double w = QFontMetricsF(p.font()).horizontalAdvance(text) + 14;
    const QRectF box = bottomRight ? QRectF(plot.right() - w - 8, plot.bottom() - 17 - 8, w, 17)
                                   : QRectF(plot.center().x() - w / 2, plot.top() + 6, w, 17);
    p.setPen(QPen(theme::textDisabled, 1));
    p.setBrush(theme::withAlpha(theme::chrome, 0.85));
    p.drawRoundedRect(box, 3, 3);
    p.setPen(theme::textSecondary);
    p.drawText(box, Qt::AlignCenter, text);
    p.restore();
}

}  // namespace velmora
