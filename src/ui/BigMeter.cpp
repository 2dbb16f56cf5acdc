#include "ui/BigMeter.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>

#include "ui/FittedText.h"
#include "ui/NumberText.h"
#include "ui/StudioTheme.h"

namespace velmora {

namespace {

constexpr double margin = 8;
constexpr double titleHeight = 18;
constexpr double barWidth = 22;
constexpr double markerGap = 9;  // between the bar and its labels: room for the target marker
constexpr double labelHalf = 6;  // the 0 and bottom labels stand half above and below the bar

constexpr int smallestReadoutPx = 16;
constexpr int smallestTargetPx = 8;
constexpr int largestReadoutPx = 80;
const QString typicalReading = QStringLiteral("-00.0");
const QString typicalTarget = QStringLiteral("CIBLE -00.0");

double scaleWidth() { return theme::scaleLabelWidth() + 2; }

QFont readoutFontAt(int px) { return theme::monoFont(px); }

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

int BigMeter::preferredPx() const {
    // 40 px at the usual height, up to twice that in a tall meter.
    return std::clamp(int(height() / 6.5), theme::bigReadoutPx, largestReadoutPx);
}

int BigMeter::readoutPx() const {
    const double room = width() - readoutLeft() - 2;
    return fittedPixelSize(typicalReading, room, preferredPx(), smallestReadoutPx, readoutFontAt);
}

void BigMeter::resizeEvent(QResizeEvent* e) {
    SegmentedMeter::resizeEvent(e);
    // A taller meter asks for the width its larger type needs.
    if (preferredPx() != hintedPx_) {
        hintedPx_ = preferredPx();
        updateGeometry();
    }
}

QString BigMeter::targetText() const {
    return std::isfinite(target_) ? QStringLiteral("CIBLE ") + fixedText(target_, 1) : QString();
}

int BigMeter::targetPx() const {
    const int preferred = std::max(theme::readoutPx, readoutPx() * theme::readoutPx / theme::bigReadoutPx);
    const QString text = std::max(targetText(), typicalTarget, [](const QString& a, const QString& b) {
        return a.size() < b.size();
    });
    return fittedPixelSize(text, width() - readoutLeft() - margin, preferred, smallestTargetPx, readoutFontAt);
}

QFont BigMeter::readoutFont() const {
    // A reading longer than the typical one ("-100.0") gets smaller type of its own.
    const QString text = readout();
    return readoutFontAt(fittedPixelSize(text, readoutRect().width(), readoutPx(), smallestReadoutPx, readoutFontAt));
}

QRectF BigMeter::readoutRect() const {
    const double x = readoutLeft();
    const int px = readoutPx();
    return QRectF(x, barRect().top() - 4, std::max(0.0, width() - x - 2), px + 8);
}

QSize BigMeter::sizeHint() const {
    const double readout = QFontMetricsF(readoutFontAt(preferredPx())).horizontalAdvance(typicalReading);
    const double title = QFontMetricsF(theme::captionFont()).horizontalAdvance(title_) + 2 * margin;
    return QSize(int(std::ceil(std::max(title, readoutLeft() + readout + margin))), 260);
}

QSize BigMeter::minimumSizeHint() const {
    // Room for the value at its smallest type and the whole target line.
    const double readout = QFontMetricsF(readoutFontAt(smallestReadoutPx)).horizontalAdvance(typicalReading);
    const double target = QFontMetricsF(readoutFontAt(9)).horizontalAdvance(typicalTarget);
    const double title = QFontMetricsF(theme::captionFont()).horizontalAdvance(title_) + 2 * margin;
    return QSize(int(std::ceil(std::max(title, readoutLeft() + std::max(readout, target) + margin))), 180);
}

void BigMeter::paintStatic(QPainter& p) const {
    p.setRenderHint(QPainter::Antialiasing);
    p.setFont(theme::captionFont());
    p.setPen(theme::textSecondary);
    p.drawText(QRectF(margin, 0, width() - 2 * margin, titleHeight), Qt::AlignLeft | Qt::AlignVCenter, title_);
    paintWell(p);
    paintUnlit(p);
    paintScale(p, barRect().right() + markerGap, scaleWidth(), Qt::AlignRight);

    const QRectF readoutBox = readoutRect();
    const double x = readoutBox.left(), top = readoutBox.bottom() + 2;
    p.setFont(theme::captionFont());
    p.setPen(theme::textSecondary);
    p.drawText(QRectF(x, top, width() - x - margin, 16), Qt::AlignLeft | Qt::AlignVCenter, unit_);
    if (std::isfinite(target_)) {
        const int px = targetPx();
        p.setFont(readoutFontAt(px));
        p.drawText(QRectF(x, top + 18, width() - x - margin, px + 6), Qt::AlignLeft | Qt::AlignVCenter, targetText());
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
    p.setFont(readoutFont());
    p.setPen(std::isfinite(value_) ? valueColor_ : theme::textSecondary);
    p.drawText(readoutRect(), Qt::AlignLeft | Qt::AlignVCenter, readout());
}

AccessibleReading BigMeter::accessibleReading() const {
    AccessibleReading r = SegmentedMeter::accessibleReading();
    if (std::isfinite(value_) && !unit_.isEmpty()) r.value += QLatin1Char(' ') + unit_;
    return r;
}

}  // namespace velmora
