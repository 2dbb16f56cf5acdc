#include "ui/BigMeter.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>
#include <cmath>

#include "ui/NumberText.h"
#include "ui/StudioTheme.h"

namespace velmora {

namespace {

constexpr double margin = 8;
constexpr double titleHeight = 18;
constexpr double barWidth = 22;
constexpr double markerGap = 9;  // between the bar and its labels: room for the target marker
constexpr double labelHalf = 6;  // the 0 and bottom labels stand half above and below the bar

double scaleWidth() { return theme::scaleLabelWidth() + 2; }

}  // namespace

BigMeter::BigMeter(QWidget* parent) : SegmentedMeter(parent), valueColor_(theme::textPrimary) {}

BigMeter::BigMeter(const QString& title, const QString& unit, bool isTP, QWidget* parent) : BigMeter(parent) {
    setTitle(title);
    setUnit(unit);
    setTruePeak(isTP);
}

void BigMeter::setUnit(const QString& unit) {
    unit_ = unit;
    update();
}

void BigMeter::setValueColor(const QColor& color) {
    valueColor_ = color;
    update();
}

QRectF BigMeter::barRect() const {
    const double top = titleHeight + 3 + labelHalf;
    return QRectF(margin + 3, top, barWidth, std::max(60.0, height() - margin - labelHalf - top));
}

double BigMeter::readoutLeft() const { return barRect().right() + markerGap + scaleWidth() + 14; }

QSize BigMeter::sizeHint() const {
    const double readout = QFontMetricsF(theme::monoFont(theme::bigReadoutPx)).horizontalAdvance(QStringLiteral("-60.0"));
    const double title = QFontMetricsF(theme::captionFont()).horizontalAdvance(title_) + 2 * margin;
    return QSize(int(std::ceil(std::max(title, readoutLeft() + readout + margin))), 260);
}

QSize BigMeter::minimumSizeHint() const { return QSize(sizeHint().width(), 180); }

void BigMeter::paintStatic(QPainter& p) const {
    p.setRenderHint(QPainter::Antialiasing);
    p.setFont(theme::captionFont());
    p.setPen(theme::textSecondary);
    p.drawText(QRectF(margin, 0, width() - 2 * margin, titleHeight), Qt::AlignLeft | Qt::AlignVCenter, title_);
    paintWell(p);
    paintUnlit(p);
    paintScale(p, barRect().right() + markerGap, scaleWidth(), Qt::AlignRight);

    const double x = readoutLeft(), top = barRect().top() + 2 + theme::bigReadoutPx + 4;
    p.setFont(theme::captionFont());
    p.setPen(theme::textSecondary);
    p.drawText(QRectF(x, top, width() - x - margin, 16), Qt::AlignLeft | Qt::AlignVCenter, unit_);
    if (std::isfinite(target_)) {
        p.setFont(theme::monoFont(theme::readoutPx));
        p.drawText(QRectF(x, top + 22, width() - x - margin, 16), Qt::AlignLeft | Qt::AlignVCenter,
                   QStringLiteral("CIBLE ") + fixedText(target_, 1));
    }
}

void BigMeter::paintReadings(QPainter& p) const {
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF bar = barRect();
    if (std::isfinite(target_) && target_ <= 0 && target_ >= -scale_.span()) {
        // Drawn over the lit segments: the target must stay visible when the level reaches it.
        const double y = bar.top() + bar.height() * (0 - target_) / scale_.span();
        p.fillRect(QRectF(bar.left(), y - 0.75, bar.width(), 1.5), theme::withAlpha(Qt::white, 0.85));
        QPainterPath marker;
        marker.moveTo(bar.right() + 1.5, y);
        marker.lineTo(bar.right() + 7.5, y - 4);
        marker.lineTo(bar.right() + 7.5, y + 4);
        marker.closeSubpath();
        p.fillPath(marker, theme::accent);
    }
    const double x = readoutLeft();
    p.setFont(theme::monoFont(theme::bigReadoutPx));
    p.setPen(std::isfinite(value_) ? valueColor_ : theme::textSecondary);
    p.drawText(QRectF(x, bar.top() - 4, width() - x - 2, theme::bigReadoutPx + 8), Qt::AlignLeft | Qt::AlignVCenter,
               readout());
}

AccessibleReading BigMeter::accessibleReading() const {
    AccessibleReading r = SegmentedMeter::accessibleReading();
    if (std::isfinite(value_) && !unit_.isEmpty()) r.value += QLatin1Char(' ') + unit_;
    return r;
}

}  // namespace velmora
