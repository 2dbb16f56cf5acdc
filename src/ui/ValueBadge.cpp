#include "ui/ValueBadge.h"

#include <QFontMetricsF>
#include <QPainter>
#include <cmath>

#include "ui/StudioTheme.h"

namespace velmora {

namespace {
constexpr int valuePx = 16;
constexpr double pad = 8;
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

void ValueBadge::setLabel(const QString& label) {
    label_ = label;
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

void ValueBadge::paintEvent(QPaintEvent*) {
    QPainter p(this);
    theme::paintPanel(p, QRectF(rect()), theme::controlRadius + 2, theme::well);
    p.setFont(theme::captionFont());
    p.setPen(theme::textSecondary);
    p.drawText(QRectF(pad, 5, width() - 2 * pad, 14), Qt::AlignLeft | Qt::AlignVCenter, label_);
    const QFont valueFont = theme::monoFont(valuePx, true);
    p.setFont(valueFont);
    p.setPen(isEnabled() ? color_ : theme::textDisabled);
    const QRectF valueRect(pad, 20, width() - 2 * pad, height() - 24);
    p.drawText(valueRect, Qt::AlignLeft | Qt::AlignVCenter, value_);
    if (unit_.isEmpty()) return;
    // The unit follows the number on its baseline, small and quiet.
    const QFontMetricsF valueMetrics(valueFont);
    const double baseline = valueRect.center().y() + (valueMetrics.ascent() - valueMetrics.descent()) / 2;
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
