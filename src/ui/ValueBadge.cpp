#include "ui/ValueBadge.h"

#include <QFontMetricsF>
#include <QPainter>
#include <cmath>

#include "ui/FittedText.h"
#include "ui/StudioTheme.h"

namespace velmora {

namespace {
constexpr int valuePx = 16;
constexpr int smallestValuePx = 10;
constexpr double pad = 8;
const QString typicalValue = QStringLiteral("-00.0");

QFont valueFontAt(int px) { return theme::monoFont(px, true); }
}  // namespace

ValueBadge::ValueBadge(QWidget* parent) : QWidget(parent), color_(theme::textPrimary) {
    installStudioAccessibility();
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

ValueBadge::ValueBadge(const QString& label, const QString& value, const QColor& color, QWidget* parent)
    : ValueBadge(parent) {
    setLabel(label);
    setValue(value);
    setColor(color);
}

void ValueBadge::setLabel(const QString& label, const QString& compact) {
    label_ = label;
    compactLabel_ = compact;
    setAccessibleName(label);
    updateGeometry();
    update();
}

void ValueBadge::setValue(const QString& value) {
    if (value == value_) return;
    value_ = value;
    updateGeometry();
    update();
}

void ValueBadge::setUnit(const QString& unit) {
    if (unit == unit_) return;
    unit_ = unit;
    updateGeometry();
    update();
}

double ValueBadge::unitRoom() const {
    return unit_.isEmpty() ? 0.0 : unitGap + QFontMetricsF(theme::captionFont()).horizontalAdvance(unit_);
}

void ValueBadge::setColor(const QColor& color) {
    color_ = color;
    update();
}

QSize ValueBadge::sizeHint() const {
    const double label = QFontMetricsF(theme::captionFont()).horizontalAdvance(label_);
    // Wide enough for a typical reading, so the badge does not jump as the value changes.
    const QFontMetricsF mono(theme::monoFont(valuePx, true));
    const double value = std::max(mono.horizontalAdvance(value_), mono.horizontalAdvance(QStringLiteral("-00.0"))) + unitRoom();
    return QSize(int(std::ceil(std::max(label, value) + 2 * pad)), 48);
}

QSize ValueBadge::minimumSizeHint() const {
    const QFontMetricsF caption(theme::captionFont());
    const double label = caption.horizontalAdvance(compactLabel_.isEmpty() ? label_ : compactLabel_);
    const QFontMetricsF mono(valueFontAt(smallestValuePx));
    const double value = std::max(mono.horizontalAdvance(value_), mono.horizontalAdvance(typicalValue)) + unitRoom();
    return QSize(int(std::ceil(std::max(label, value) + 2 * pad)), 48);
}

QRectF ValueBadge::valueRect() const { return QRectF(pad, 20, width() - 2 * pad, height() - 24); }

QFont ValueBadge::valueFont() const {
    const QString sample = value_.size() > typicalValue.size() ? value_ : typicalValue;
    return valueFontAt(fittedPixelSize(sample, valueRect().width() - unitRoom(), valuePx, smallestValuePx, valueFontAt));
}

double ValueBadge::valueAdvance() const { return QFontMetricsF(valueFont()).horizontalAdvance(value_) + unitRoom(); }

QString ValueBadge::shownLabel() const {
    if (compactLabel_.isEmpty() || QFontMetricsF(theme::captionFont()).horizontalAdvance(label_) <= width() - 2 * pad)
        return label_;
    return compactLabel_;
}

void ValueBadge::paintEvent(QPaintEvent*) {
    QPainter p(this);
    theme::paintPanel(p, QRectF(rect()), theme::controlRadius + 2, theme::well);
    p.setFont(theme::captionFont());
    p.setPen(theme::textSecondary);
    p.drawText(QRectF(pad, 5, width() - 2 * pad, 14), Qt::AlignLeft | Qt::AlignVCenter, shownLabel());
    const QFont font = valueFont();
    p.setFont(font);
    p.setPen(isEnabled() ? color_ : theme::textDisabled);
    const QRectF box = valueRect();
    p.drawText(box, Qt::AlignLeft | Qt::AlignVCenter, value_);
    if (unit_.isEmpty()) return;
    // The unit follows the number on its baseline, small and quiet.
    const QFontMetricsF valueMetrics(font);
    const double baseline = box.center().y() + (valueMetrics.ascent() - valueMetrics.descent()) / 2;
    p.setFont(theme::captionFont());
    p.setPen(theme::textSecondary);
    p.drawText(QPointF(pad + valueMetrics.horizontalAdvance(value_) + unitGap, baseline), unit_);
}

AccessibleReading ValueBadge::accessibleReading() const {
    AccessibleReading r;
    r.role = QAccessible::StaticText;
    r.value = unit_.isEmpty() ? value_ : value_ + ' ' + unit_;
    return r;
}

}  // namespace velmora
