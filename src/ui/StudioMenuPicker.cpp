#include "ui/StudioMenuPicker.h"

#include <QFontMetricsF>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <cmath>

#include "ui/StudioTheme.h"

namespace velmora {

namespace {
constexpr double pad = 10;
constexpr double chevronWidth = 18;
}  // namespace

StudioMenuPicker::StudioMenuPicker(QWidget* parent) : QAbstractButton(parent), menu_(new QMenu(this)) {
    installStudioAccessibility();
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAttribute(Qt::WA_Hover);
    connect(this, &QAbstractButton::clicked, this, [this] {
        menu_->setMinimumWidth(width());
        menu_->popup(mapToGlobal(QPoint(0, height() + 2)));
    });
}

void StudioMenuPicker::setCurrentLabel(const QString& label) {
    currentLabel_ = label;
    setToolTip(label);  // the whole text when the picker is too narrow for it
    updateGeometry();
    update();
}

QSize StudioMenuPicker::sizeHint() const {
    const double text = QFontMetricsF(theme::bodyFont()).horizontalAdvance(currentLabel_);
    return QSize(int(std::ceil(text + 2 * pad + chevronWidth)), 30);
}

void StudioMenuPicker::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    p.setPen(QPen(hasFocus() ? theme::withAlpha(theme::accent, 0.8) : underMouse() ? theme::knobRim : theme::panelBorder, 1));
    p.setBrush(isDown() ? theme::panelBorder : theme::well);
    p.drawRoundedRect(r, theme::controlRadius, theme::controlRadius);

    const QRectF textRect(pad, 0, width() - 2 * pad - chevronWidth, height());
    p.setFont(theme::bodyFont());
    p.setPen(isEnabled() ? theme::textPrimary : theme::textDisabled);
    p.drawText(textRect, Qt::AlignLeft | Qt::AlignVCenter,
               QFontMetricsF(p.font()).elidedText(currentLabel_, Qt::ElideRight, textRect.width()));

    const double cx = width() - pad - chevronWidth / 2 + 4, cy = height() / 2.0;
    QPainterPath chevron;
    chevron.moveTo(cx - 4, cy - 2);
    chevron.lineTo(cx, cy + 2.5);
    chevron.lineTo(cx + 4, cy - 2);
    p.setPen(QPen(isEnabled() ? theme::accent : theme::textDisabled, 1.6, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(Qt::NoBrush);
    p.drawPath(chevron);
}

AccessibleReading StudioMenuPicker::accessibleReading() const {
    AccessibleReading r;
    r.role = QAccessible::ComboBox;
    r.value = currentLabel_;
    return r;
}

}  // namespace velmora
