#include "ui/AnalogVUMeter.h"

#include <QFontMetricsF>
#include <QPainter>
#include <algorithm>
#include <cmath>
#include <numbers>

#include "ui/FittedText.h"
#include "ui/NumberText.h"
#include "ui/StudioTheme.h"

namespace velmora {

namespace {

constexpr double footerGap = 10;  // between the title and the reading
constexpr int smallestFooterPx = 8;
// The footer's widest reading, so the type does not change with the value.
const QString typicalReading = QStringLiteral("-00.0 dBTP");

QFont titleFontAt(int px) {
    QFont f = theme::captionFont();
    f.setPixelSize(std::max(1, px * theme::captionPx / theme::readoutPx));
    return f;
}

}  // namespace

AnalogVUMeter::AnalogVUMeter(QWidget* parent) : QWidget(parent), accent_(theme::accent) {
    installStudioAccessibility();
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Preferred);
}

void AnalogVUMeter::changed() {
    face_.invalidate();
    update();
}

void AnalogVUMeter::setTitle(const QString& title) {
    title_ = title;
    setAccessibleName(title);
    changed();
}

void AnalogVUMeter::setValue(double value) {
    const bool moved = needleAngle(value) != needleAngle(value_) ||
                       fixedText(value, 1) != fixedText(value_, 1);
    value_ = value;
    if (moved) {
        announceValueChange(this, value);
        update();
    }
}

void AnalogVUMeter::setReference(double reference) {
    reference_ = reference;
    changed();
}

void AnalogVUMeter::setDeltas(double lowDelta, double highDelta) {
    lowDelta_ = lowDelta;
    highDelta_ = highDelta;
    changed();
}

void AnalogVUMeter::setUnit(const QString& unit) {
    unit_ = unit;
    changed();
}

void AnalogVUMeter::setAccent(const QColor& accent) {
    accent_ = accent;
    update();
}

void AnalogVUMeter::setSweep(double degrees) {
    sweep_ = degrees;
    changed();
}

void AnalogVUMeter::resizeEvent(QResizeEvent* e) {
    QWidget::resizeEvent(e);
    face_.invalidate();
}

double AnalogVUMeter::needleAngle(double value) const {
    const double span = highDelta_ - lowDelta_;
    if (!(span > 0)) return -sweep_ / 2;
    double delta = value - reference_;
    if (std::isnan(delta)) delta = lowDelta_;
    delta = std::clamp(delta, lowDelta_, highDelta_);
    return (delta - lowDelta_) / span * sweep_ - sweep_ / 2;
}

int AnalogVUMeter::scalePx() const {
    return std::clamp(int(std::min(width() / 2.0, double(height())) / 16), theme::scalePx, 14);
}

int AnalogVUMeter::readoutPx() const {
    return std::clamp(int(std::min(width() / 17.0, height() / 11.0)), theme::readoutPx, 20);
}

int AnalogVUMeter::footerPx() const {
    // The reading and the title side by side: the pair in smaller type until it fits.
    const double room = footerRect().width() - footerGap;
    int px = readoutPx();
    const auto advance = [this](int size) {
        return QFontMetricsF(theme::monoFont(size)).horizontalAdvance(typicalReading) +
               QFontMetricsF(titleFontAt(size)).horizontalAdvance(title_);
    };
    while (px > smallestFooterPx && advance(px) > room) --px;
    return px;
}

double AnalogVUMeter::footerHeight() const { return std::max(22.0, readoutPx() * 2.0); }

QRectF AnalogVUMeter::footerRect() const {
    const double h = footerHeight();
    return QRectF(10, height() - h, std::max(0, width() - 20), h - 4);
}

QFont AnalogVUMeter::titleFont() const { return titleFontAt(footerPx()); }
QFont AnalogVUMeter::readoutFont() const {
    // A reading longer than the typical one ("-100.0 LUFS") takes smaller type of its own.
    const int px = footerPx();
    const double room =
        footerRect().width() - footerGap - QFontMetricsF(titleFontAt(px)).horizontalAdvance(title_);
    const auto mono = [](int size) { return theme::monoFont(size); };
    return mono(fittedPixelSize(accessibleReading().value, room, px, smallestFooterPx - 2, mono));
}

double AnalogVUMeter::lowestPivot() const { return height() - footerHeight() - 6; }

QPointF AnalogVUMeter::pivot() const {
    // A dial the width limits leaves room above it: it moves up to the middle of that room.
    const double k = scalePx() / double(theme::scalePx);
    const double room = lowestPivot() - 24 * k - radius();
    return QPointF(width() / 2.0, lowestPivot() - std::max(0.0, room) / 2);
}

double AnalogVUMeter::radius() const {
    // The arc and its labels must fit above the pivot and between the sides at the widest angle.
    const double k = scalePx() / double(theme::scalePx);
    const double half = std::min(sweep_ / 2, 90.0) * std::numbers::pi / 180.0;
    const double byWidth = (width() / 2.0 - 22 * k) / std::max(std::sin(half), 0.3);
    return std::max(20.0, std::min(lowestPivot() - 24 * k, byWidth));
}

double AnalogVUMeter::labelStep() const {
    // At most about seven labels on a step a sound engineer reads easily, both ends labelled
    // when a step allows it.
    const double span = highDelta_ - lowDelta_;
    const auto onStep = [](double v, double step) { return std::fabs(std::remainder(v, step)) < 1e-9; };
    for (double step : {1.0, 2.0, 3.0, 5.0, 6.0, 10.0, 12.0, 20.0})
        if (span / step <= 6.5 && onStep(lowDelta_, step) && onStep(highDelta_, step)) return step;
    for (double step : {1.0, 2.0, 3.0, 5.0, 6.0, 10.0, 12.0, 20.0})
        if (span / step <= 6.5) return step;
    return 30;
}

QSize AnalogVUMeter::sizeHint() const { return QSize(180, 125); }

void AnalogVUMeter::paintFace(QPainter& p) const {
    p.setRenderHint(QPainter::Antialiasing);
    theme::paintPanel(p, QRectF(rect()), theme::panelRadius, theme::well);

    const QPointF c = pivot();
    const double r = radius();
    const double start = -sweep_ / 2;
    const auto arc = [&](double from, double to, const QColor& colour, double width) {
        // QPainter's arcs run counter-clockwise from three o'clock in sixteenths of a degree.
        p.setPen(QPen(colour, width, Qt::SolidLine, Qt::FlatCap));
        p.setBrush(Qt::NoBrush);
        const QRectF box(c.x() - r, c.y() - r, 2 * r, 2 * r);
        p.drawArc(box, int(std::lround((90 - from) * 16)), int(std::lround(-(to - from) * 16)));
    };
    arc(start, needleAngle(reference_), theme::withAlpha(theme::textSecondary, 0.7), 1.5);
    if (highDelta_ > 0) arc(needleAngle(reference_), sweep_ / 2, theme::zoneRed, 3);

    const double step = labelStep();
    const double k = scalePx() / double(theme::scalePx);
    p.setFont(theme::monoFont(scalePx()));
    for (double d = std::ceil(lowDelta_ / (step / 2)) * (step / 2); d <= highDelta_ + 1e-9; d += step / 2) {
        const double a = needleAngle(reference_ + d);
        const bool major = std::fmod(std::fabs(d), step) < 1e-9;
        const QColor colour = d > 0 ? theme::zoneRed : theme::textPrimary;
        p.setPen(QPen(theme::withAlpha(colour, major ? 0.85 : 0.5), major ? 1.5 : 1));
        p.drawLine(theme::onDial(c, r + 1, a), theme::onDial(c, r + (major ? 7 : 4) * k, a));
        if (!major) continue;
        const QPointF at = theme::onDial(c, r + 15 * k, a);
        p.setPen(theme::withAlpha(colour, 0.85));
        p.drawText(QRectF(at.x() - 16 * k, at.y() - 7 * k, 32 * k, 14 * k), Qt::AlignCenter, signedFixedText(d, 0));
    }

    p.setFont(titleFont());
    p.setPen(theme::textSecondary);
    p.drawText(footerRect(), Qt::AlignLeft | Qt::AlignVCenter, title_);
}

void AnalogVUMeter::paintEvent(QPaintEvent*) {
    QPainter p(this);
    face_.paint(p, size(), [this](QPainter& layer) { paintFace(layer); });
    p.setRenderHint(QPainter::Antialiasing);

    const QPointF c = pivot();
    const double a = needleAngle(value_);
    p.setPen(QPen(theme::withAlpha(accent_, 0.3), 4, Qt::SolidLine, Qt::RoundCap));
    p.drawLine(theme::onDial(c, 8, a), theme::onDial(c, radius() - 2, a));
    p.setPen(QPen(accent_, 1.6, Qt::SolidLine, Qt::RoundCap));
    p.drawLine(theme::onDial(c, 8, a), theme::onDial(c, radius() - 2, a));
    p.setPen(QPen(theme::panelBorder, 1));
    p.setBrush(theme::knobBody);
    p.drawEllipse(c, 5, 5);

    p.setFont(readoutFont());
    p.setPen(std::isfinite(value_) ? theme::textPrimary : theme::textSecondary);
    p.drawText(footerRect(), Qt::AlignRight | Qt::AlignVCenter, accessibleReading().value);
}

AccessibleReading AnalogVUMeter::accessibleReading() const {
    AccessibleReading r;
    r.role = QAccessible::Indicator;
    r.value = std::isfinite(value_) ? fixedText(value_, 1) + (unit_.isEmpty() ? QString() : QLatin1Char(' ') + unit_)
                                    : QStringLiteral("—");
    r.number = std::isfinite(value_) ? value_ : reference_ + lowDelta_;
    r.minimum = reference_ + lowDelta_;
    r.maximum = reference_ + highDelta_;
    return r;
}

}  // namespace velmora
