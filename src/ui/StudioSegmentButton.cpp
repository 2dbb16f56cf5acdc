#include "ui/StudioSegmentButton.h"

#include <QFontMetricsF>
#include <QPainter>
#include <cmath>

#include "ui/StudioTheme.h"

namespace velmora {

StudioSegmentButton::StudioSegmentButton(const QString& label, const QVariant& value, QWidget* parent)
    : QAbstractButton(parent), value_(value), activeColor_(theme::accent) {
    installStudioAccessibility();
    setText(label);
    setAccessibleName(label);
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAttribute(Qt::WA_Hover);
    connect(this, &QAbstractButton::clicked, this, [this] { emit picked(value_); });
}

void StudioSegmentButton::setSelection(const QVariant& selection) {
    const bool was = isActive();
    selection_ = selection;
    if (was != isActive()) {
        announceStateChange(this);
        update();
    }
}

void StudioSegmentButton::setActiveColor(const QColor& color) {
    activeColor_ = color;
    update();
}

QSize StudioSegmentButton::sizeHint() const {
    return QSize(int(std::ceil(QFontMetricsF(theme::captionFont()).horizontalAdvance(text()) + 28)), 30);
}

void StudioSegmentButton::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    const bool active = isActive();
    QColor border = active ? activeColor_ : theme::panelBorder;
    if (!active && underMouse()) border = theme::knobRim;
    p.setPen(QPen(border, 1));
    p.setBrush(active ? theme::withAlpha(activeColor_, isDown() ? 0.3 : 0.18) : (isDown() ? theme::panelBorder : theme::well));
    p.drawRoundedRect(r, theme::controlRadius, theme::controlRadius);
    if (hasFocus()) {
        p.setPen(QPen(theme::withAlpha(theme::accent, 0.8), 1));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(r.adjusted(2, 2, -2, -2), theme::controlRadius - 1, theme::controlRadius - 1);
    }
    p.setFont(theme::captionFont());
    p.setPen(!isEnabled() ? theme::textDisabled : active ? activeColor_ : theme::textSecondary);
    p.drawText(rect(), Qt::AlignCenter, text());
}

AccessibleReading StudioSegmentButton::accessibleReading() const {
    AccessibleReading r;
    r.role = QAccessible::RadioButton;
    r.checkable = true;
    r.checked = isActive();
    return r;
}

}  // namespace velmora
