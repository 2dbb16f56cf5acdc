#include "ui/VerticalMeter.h"

#include <QFontMetricsF>
#include <QPainter>
#include <cmath>

#include "ui/StudioTheme.h"

namespace velmora {

namespace {

constexpr double pad = 4;
constexpr double titleHeight = 16;
constexpr double readoutHeight = 16;
constexpr double barWidth = 14;
constexpr double labelGap = 5;
constexpr double labelHalf = 6;

double scaleWidth() { return theme::scaleLabelWidth() + 1; }
double columnWidth() { return 3 + barWidth + 3 + labelGap + scaleWidth(); }

}  // namespace

VerticalMeter::VerticalMeter(QWidget* parent) : SegmentedMeter(parent) {}

VerticalMeter::VerticalMeter(const QString& title, bool isTP, QWidget* parent) : VerticalMeter(parent) {
    setTitle(title);
    setTruePeak(isTP);
}

QRectF VerticalMeter::barRect() const {
    const double top = titleHeight + 3 + labelHalf;
    const double bottom = height() - readoutHeight - 3 - labelHalf;
    const double left = (width() - columnWidth()) / 2 + 3;
    return QRectF(std::round(left), top, barWidth, std::max(60.0, bottom - top));
}

QSize VerticalMeter::sizeHint() const {
    const double title = QFontMetricsF(theme::captionFont()).horizontalAdvance(title_);
    const double readout = QFontMetricsF(theme::monoFont(theme::readoutPx)).horizontalAdvance(QStringLiteral("-60.0"));
    return QSize(int(std::ceil(std::max({title, readout, columnWidth()}) + 2 * pad)), 220);
}

QSize VerticalMeter::minimumSizeHint() const { return QSize(sizeHint().width(), 150); }

void VerticalMeter::paintStatic(QPainter& p) const {
    p.setRenderHint(QPainter::Antialiasing);
    p.setFont(theme::captionFont());
    p.setPen(theme::textSecondary);
    p.drawText(QRectF(0, 0, width(), titleHeight), Qt::AlignHCenter | Qt::AlignVCenter, title_);
    paintWell(p);
    paintUnlit(p);
    paintScale(p, barRect().right() + 3 + labelGap, scaleWidth(), Qt::AlignLeft);
}

void VerticalMeter::paintReadings(QPainter& p) const {
    p.setFont(theme::monoFont(theme::readoutPx));
    p.setPen(std::isfinite(value_) ? theme::textPrimary : theme::textSecondary);
    p.drawText(QRectF(0, height() - readoutHeight, width(), readoutHeight), Qt::AlignHCenter | Qt::AlignVCenter,
               readout());
}

}  // namespace velmora
