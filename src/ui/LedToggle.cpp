#include "ui/LedToggle.h"

#include <QFontMetricsF>
#include <QPainter>
#include <cmath>

#include "ui/StudioTheme.h"

namespace velmora {

namespace {
constexpr double pad = 4;
constexpr double gap = 7;
}  // namespace

LedToggle::LedToggle(const QString& label, QWidget* parent) : QAbstractButton(parent), color_(theme::ledGreen) {
    installStudioAccessibility();
    setText(label);
    setAccessibleName(label);
    setCheckable(true);
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAttribute(Qt::WA_Hover);
    connect(this, &QAbstractButton::toggled, this, [this] { announceStateChange(this); });
}

void LedToggle::setColor(const QColor& color) {
    color_ = color;
    update();
}

void LedToggle::setLedSize(int diameter) {
    ledSize_ = diameter;
    updateGeometry();
    update();
}

void LedToggle::setDimmed(bool dimmed) {
    if (dimmed == dimmed_) return;
    dimmed_ = dimmed;
    update();
}

QPointF LedToggle::ledCentre() const { return QPointF(pad + ledSize_ / 2.0 + 2, height() / 2.0); }

QSize LedToggle::sizeHint() const {
    double w = pad + ledSize_ + 4 + pad;
    if (!text().isEmpty()) w += gap + QFontMetricsF(theme::captionFont()).horizontalAdvance(text());
    return QSize(int(std::ceil(w)), std::max(24, ledSize_ + 10));
}

void LedToggle::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QPointF c = ledCentre();
    const double r = ledSize_ / 2.0;
    const bool on = isChecked() && isEnabled();
    const QColor lit = dimmed_ ? theme::withAlpha(color_, 0.35) : color_;
    if (on && !dimmed_) {
        QRadialGradient glow(c, r * 2.2);
        glow.setColorAt(0, theme::withAlpha(color_, 0.55));
        glow.setColorAt(1, theme::withAlpha(color_, 0));
        p.setPen(Qt::NoPen);
        p.setBrush(glow);
        p.drawEllipse(c, r * 2.2, r * 2.2);
    }
    QRadialGradient lamp(c - QPointF(r * 0.3, r * 0.35), r * 1.3);
    lamp.setColorAt(0, on ? (dimmed_ ? lit : color_.lighter(150)) : theme::knobRim);
    lamp.setColorAt(1, on ? lit : theme::knobBody.darker(140));
    p.setPen(QPen(on ? color_.darker(dimmed_ ? 250 : 140) : theme::chrome, 1));
    p.setBrush(lamp);
    p.drawEllipse(c, r, r);
    if (hasFocus()) {
        p.setPen(QPen(theme::withAlpha(theme::accent, 0.8), 1));
        p.setBrush(Qt::NoBrush);
        p.drawEllipse(c, r + 2.5, r + 2.5);
    }
    if (!text().isEmpty()) {
        p.setFont(theme::captionFont());
        p.setPen(!isEnabled() || dimmed_ ? theme::textDisabled
                 : isChecked() || underMouse() ? theme::textPrimary
                                               : theme::textSecondary);
        const double x = c.x() + r + 2 + gap;
        p.drawText(QRectF(x, 0, width() - x, height()), Qt::AlignLeft | Qt::AlignVCenter, text());
    }
}

AccessibleReading LedToggle::accessibleReading() const {
    AccessibleReading r;
    r.role = QAccessible::CheckBox;
    r.value = isChecked() ? QStringLiteral("activé") : QStringLiteral("désactivé");
    r.checkable = true;
    r.checked = isChecked();
    return r;
}

}  // namespace velmora
