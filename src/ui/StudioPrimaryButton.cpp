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

double StudioPrimaryButton::iconRoom() const { return icon().isNull() ? 0.0 : iconSize().width() + iconGap; }

QSize StudioPrimaryButton::sizeHint() const {
    return QSize(int(std::ceil(QFontMetricsF(theme::captionFont()).horizontalAdvance(text()) + iconRoom() + 40)), 34);
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
    if (icon().isNull()) {
        p.drawText(rect(), Qt::AlignCenter, text());
        return;
    }
    // The symbol and the text centred together as one line.
    const double textWidth = QFontMetricsF(p.font()).horizontalAdvance(text());
    const QSize is = iconSize();
    const double left = std::round((width() - textWidth - iconRoom()) / 2);
    icon().paint(&p, QRect(int(left), (height() - is.height()) / 2, is.width(), is.height()), Qt::AlignCenter,
                 isEnabled() ? QIcon::Normal : QIcon::Disabled);
    p.drawText(QRectF(left + iconRoom(), 0, textWidth + 1, height()), Qt::AlignLeft | Qt::AlignVCenter, text());
}

}  // namespace velmora
