#include "ui/window/ABSwitch.h"

#include <QPainter>
#include <cmath>

#include "ui/StudioTheme.h"

namespace velmora::window {

ABSwitch::ABSwitch(QWidget* parent) : QAbstractButton(parent) {
    setAccessibleName(QStringLiteral("Comparaison A/B"));
    setToolTip(QStringLiteral("A : source, à la sonie du traitement · B : traité (touche A)"));
    setFocusPolicy(Qt::TabFocus);
    setCursor(Qt::PointingHandCursor);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    source_ = false;
    setSourceHeard(true);
}

void ABSwitch::setSourceHeard(bool source) {
    if (source == source_) return;
    source_ = source;
    // Read aloud as the state: the letter and what it stands for.
    setText(source ? QStringLiteral("A") : QStringLiteral("B"));
    setAccessibleDescription(source ? QStringLiteral("A : source entendue") : QStringLiteral("B : traité entendu"));
    update();
}

QSize ABSwitch::sizeHint() const {
    const double letter = QFontMetricsF(theme::captionFont()).horizontalAdvance(QStringLiteral("B"));
    return QSize(int(std::ceil(2 * letter + 34)), 30);
}

void ABSwitch::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    p.setPen(QPen(hasFocus() ? theme::accent : theme::panelBorder, 1));
    p.setBrush(underMouse() && isEnabled() ? theme::knobBody : theme::well);
    p.drawRoundedRect(r, r.height() / 2, r.height() / 2);
    // The heard side sits on a lit half.
    const QRectF a(r.left() + 3, r.top() + 3, r.width() / 2 - 3, r.height() - 6);
    const QRectF b(r.center().x(), r.top() + 3, r.width() / 2 - 3, r.height() - 6);
    const QRectF lit = source_ ? a : b;
    if (isEnabled()) {
        p.setPen(Qt::NoPen);
        p.setBrush(theme::withAlpha(theme::accent, 0.35));
        p.drawRoundedRect(lit, lit.height() / 2, lit.height() / 2);
    }
    p.setFont(theme::captionFont());
    const QColor on = isEnabled() ? theme::textPrimary : theme::textDisabled;
    const QColor off = theme::textDisabled;
    p.setPen(source_ ? on : off);
    p.drawText(a, Qt::AlignCenter, QStringLiteral("A"));
    p.setPen(source_ ? off : on);
    p.drawText(b, Qt::AlignCenter, QStringLiteral("B"));
}

}  // namespace velmora::window
