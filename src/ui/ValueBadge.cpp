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

void ValueBadge::setColor(const QColor& color) {
    color_ = color;
    update();
}

QSize ValueBadge::sizeHint() const {
    const double label = QFontMetricsF(theme::captionFont()).horizontalAdvance(label_);
    // Wide enough for a typical reading, so the badge does not jump as the value changes.
    const QFontMetricsF mono(theme::monoFont(valuePx, true));
    const double value = std::max(mono.horizontalAdvance(value_), mono.horizontalAdvance(QStringLiteral("-00.0")));
    return QSize(int(std::ceil(std::max(label, value) + 2 * pad)), 48);
}

void ValueBadge::paintEvent(QPaintEvent*) {
    QPainter p(this);
    theme::paintPanel(p, QRectF(rect()), theme::controlRadius + 2, theme::well);
    p.setFont(theme::captionFont());
    p.setPen(theme::textSecondary);
    p.drawText(QRectF(pad, 5, width() - 2 * pad, 14), Qt::AlignLeft | Qt::AlignVCenter, label_);
    p.setFont(theme::monoFont(valuePx, true));
    p.setPen(isEnabled() ? color_ : theme::textDisabled);
    p.drawText(QRectF(pad, 20, width() - 2 * pad, height() - 24), Qt::AlignLeft | Qt::AlignVCenter, value_);
}

AccessibleReading ValueBadge::accessibleReading() const {
    AccessibleReading r;
    r.role = QAccessible::StaticText;
    r.value = value_;
    return r;
}

}  // namespace velmora
