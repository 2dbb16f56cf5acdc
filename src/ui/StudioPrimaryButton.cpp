#include "ui/StudioPrimaryButton.h"

#include <QFontMetricsF>
#include <QPainter>
#include <cmath>

#include "ui/StudioTheme.h"

namespace velmora {

StudioPrimaryButton::StudioPrimaryButton(const QString& text, QWidget* parent)
    : QAbstractButton(parent), color_(theme::accent) {
    setText(text);
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAttribute(Qt::WA_Hover);
}

void StudioPrimaryButton::setColor(const QColor& color) {
    color_ = color;
    update();
}

void StudioPrimaryButton::setLightColor(std::optional<QColor> color) {
    lightColor_ = color;
    update();
}

QSize StudioPrimaryButton::sizeHint() const {
    return QSize(int(std::ceil(QFontMetricsF(theme::captionFont()).horizontalAdvance(text()) + 40)), 34);
}

void StudioPrimaryButton::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QColor face = color_;
    if (!isEnabled()) face = theme::panelBorder;
    else if (isDown()) face = color_.darker(115);
    else if (underMouse()) face = lightColor_.value_or(color_.lighter(112));
    p.setPen(QPen(isEnabled() ? face.darker(130) : theme::panelBorder, 1));
    p.setBrush(face);
    p.drawRoundedRect(r, theme::controlRadius + 2, theme::controlRadius + 2);
    if (hasFocus()) {
        p.setPen(QPen(theme::withAlpha(theme::chrome, 0.7), 1.5));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(r.adjusted(2.5, 2.5, -2.5, -2.5), theme::controlRadius, theme::controlRadius);
    }
    p.setFont(theme::captionFont());
    p.setPen(isEnabled() ? theme::chrome : theme::textDisabled);
    p.drawText(rect(), Qt::AlignCenter, text());
}

}  // namespace velmora
