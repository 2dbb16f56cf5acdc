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

void GraphTitle::paint(QPainter& p, int width) const {
    p.setFont(theme::captionFont());
    const qsizetype split = text_.indexOf(QStringLiteral(" · "));
    if (fits(width) || split < 0) {
        p.setPen(theme::textSecondary);
        p.drawText(QRectF(0, 0, width, 18), Qt::AlignLeft | Qt::AlignVCenter, text_);
        return;
    }
    p.setPen(theme::textPrimary);
    p.drawText(QRectF(0, 0, width, 16), Qt::AlignLeft | Qt::AlignVCenter, text_.left(split));
    p.setPen(theme::textSecondary);
    p.drawText(QRectF(0, 15, width, 16), Qt::AlignLeft | Qt::AlignVCenter, text_.mid(split + 3));
}

}  // namespace velmora
