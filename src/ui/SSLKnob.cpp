#include "ui/SSLKnob.h"

#include <QContextMenuEvent>
#include <QFontMetricsF>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

#include "ui/NumberText.h"
#include "ui/StudioTheme.h"

namespace velmora {

namespace {

constexpr double pad = 2;
constexpr double labelHeight = theme::captionPx + 4;
constexpr double valueHeight = theme::readoutPx + 5;
constexpr double majorTick = 0.11, minorTick = 0.07;  // lengths, in knob diameters

bool isMajor(int i) { return i == 0 || i == 5 || i == 10; }

}  // namespace

SSLKnob::SSLKnob(QWidget* parent) : QWidget(parent), color_(theme::accent) {
    installStudioAccessibility();
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAttribute(Qt::WA_Hover);
    refresh();
}

SSLKnob::SSLKnob(const QString& label, double low, double high, const char* format, const QString& unit,
                 const QColor& color, int size, QWidget* parent)
    : SSLKnob(parent) {
    label_ = label;
    low_ = low;
    high_ = high;
    format_ = NumberStyle::of(format);
    unit_ = unit;
    color_ = color;
    size_ = size;
    value_ = default_ = low;
    setAccessibleName(label);
    refresh();
}

void SSLKnob::setLabel(const QString& label) {
    label_ = label;
    setAccessibleName(label);
    body_.invalidate();
    updateGeometry();
    refresh();
}

void SSLKnob::setRange(double low, double high) {
    low_ = low;
    high_ = high;
    value_ = clamp(value_);
    default_ = clamp(default_);
    updateGeometry();
    refresh();
}

void SSLKnob::setFormat(const char* format) {
    format_ = NumberStyle::of(format);
    updateGeometry();
    refresh();
}

void SSLKnob::setUnit(const QString& unit) {
    unit_ = unit;
    updateGeometry();
    refresh();
}

void SSLKnob::setColor(const QColor& color) {
    color_ = color;
    body_.invalidate();
    update();
}

void SSLKnob::setKnobSize(int size) {
    size_ = size;
    body_.invalidate();
    updateGeometry();
    update();
}

void SSLKnob::setDefaultValue(double value) { default_ = clamp(value); }

void SSLKnob::setStep(double step) {
    step_ = step > 0 ? step : 0;
    updateGeometry();
    refresh();
}

double SSLKnob::step() const { return step_ > 0 ? step_ : niceStep(high_ - low_); }

StepScale SSLKnob::scale() const { return StepScale{low_, high_, step(), unit_, format_.sign}; }

void SSLKnob::setDimmed(bool dimmed) {
    if (dimmed == dimmed_) return;
    dimmed_ = dimmed;
    body_.invalidate();
    update();
}

void SSLKnob::setValue(double value) {
    if (std::isnan(value)) return;
    value = clamp(value);
    if (value == value_) return;
    value_ = value;
    refresh();
}

double SSLKnob::clamp(double v) const { return std::clamp(v, std::min(low_, high_), std::max(low_, high_)); }

void SSLKnob::edit(double v, bool onGrid) {
    v = clamp(onGrid ? snapToStep(v, step()) : v);
    if (v == value_) return;
    value_ = v;
    refresh();
    emit valueEdited(value_);
}

QString SSLKnob::formatted(double v) const { return scale().text(v); }

QString SSLKnob::valueText() const { return formatted(value_); }

void SSLKnob::updateToolTip() {
    const QString name = accessibleName().isEmpty() ? label_ : accessibleName();
    setToolTip(controlToolTip(name, valueText(), scale().rangeText()));
}

void SSLKnob::refresh() {
    updateToolTip();
    announceValueChange(this, value_);
    update();
}

double SSLKnob::pointerAngle(double value, double low, double high) {
    if (high == low) return -135.0;
    return (value - low) / (high - low) * 270.0 - 135.0;
}

QSize SSLKnob::sizeHint() const {
    const QFontMetricsF caption(theme::captionFont()), mono(theme::monoFont(theme::readoutPx));
    double width = size_ + 2 * pad;
    width = std::max(width, caption.horizontalAdvance(label_) + 2 * pad);
    for (double v : {low_, high_, (low_ + high_) / 2})
        width = std::max(width, mono.horizontalAdvance(formatted(v)) + 2 * pad);
    return QSize(int(std::ceil(width)), int(std::ceil(labelHeight + size_ + valueHeight + 2 * pad)));
}

QRectF SSLKnob::knobSquare() const {
    return QRectF((width() - size_) / 2.0, pad + labelHeight, size_, size_);
}

QPointF SSLKnob::knobCentre() const { return knobSquare().center(); }

QPointF SSLKnob::tickMidpoint(int i) const {
    const double length = (isMajor(i) ? majorTick : minorTick) * size_;
    return theme::onDial(knobCentre(), size_ / 2.0 - length / 2, tickAngle(i));
}

void SSLKnob::paintBody(QPainter& p) const {
    p.setRenderHint(QPainter::Antialiasing);
    p.setFont(theme::captionFont());
    p.setPen(dimmed_ ? theme::textDisabled : theme::textSecondary);
    p.drawText(QRectF(0, pad, width(), labelHeight), Qt::AlignHCenter | Qt::AlignVCenter, label_);

    const QPointF c = knobCentre();
    const double bodyR = size_ / 2.0 - majorTick * size_ - 2.5;
    QRadialGradient shade(c - QPointF(bodyR * 0.3, bodyR * 0.4), bodyR * 1.4);
    shade.setColorAt(0, theme::knobRim);
    shade.setColorAt(1, theme::knobBody.darker(130));
    p.setPen(QPen(theme::chrome, 1.5));
    p.setBrush(shade);
    p.drawEllipse(c, bodyR, bodyR);
    // The coloured cap tells the bands apart at a glance, as on a console strip.
    p.setPen(Qt::NoPen);
    p.setBrush(theme::withAlpha(color_, dimmed_ ? 0.18 : 0.55));
    p.drawEllipse(c, bodyR * 0.36, bodyR * 0.36);
}

void SSLKnob::paintEvent(QPaintEvent*) {
    QPainter p(this);
    body_.paint(p, size(), [this](QPainter& layer) { paintBody(layer); });
    p.setRenderHint(QPainter::Antialiasing);

    const QPointF c = knobCentre();
    const double outerR = size_ / 2.0;
    const double bodyR = outerR - majorTick * size_ - 2.5;
    const double angle = pointerAngle(value_, low_, high_);
    const bool enabled = isEnabled();

    for (int i = 0; i < tickCount; ++i) {
        const bool major = isMajor(i);
        const double length = (major ? majorTick : minorTick) * size_;
        const QPointF a = theme::onDial(c, outerR - length, tickAngle(i)), b = theme::onDial(c, outerR, tickAngle(i));
        const double widthPx = major ? 2.0 : 1.2;
        if (enabled && dimmed_ && tickLit(i, angle)) {
            p.setPen(QPen(theme::withAlpha(color_, 0.3), widthPx, Qt::SolidLine, Qt::FlatCap));
        } else if (enabled && tickLit(i, angle)) {
            p.setPen(QPen(theme::withAlpha(color_, 0.6 * 0.5), widthPx + 2 * 2, Qt::SolidLine, Qt::RoundCap));
            p.drawLine(a, b);
            p.setPen(QPen(theme::withAlpha(color_, 0.9), widthPx, Qt::SolidLine, Qt::FlatCap));
        } else {
            p.setPen(QPen(theme::withAlpha(Qt::white, major ? 0.5 : 0.25), widthPx, Qt::SolidLine, Qt::FlatCap));
        }
        p.drawLine(a, b);
    }

    if (hovered_ || dragStart_) {
        p.setPen(QPen(theme::withAlpha(Qt::white, 0.18), 1));
        p.setBrush(Qt::NoBrush);
        p.drawEllipse(c, bodyR + 0.5, bodyR + 0.5);
    }
    if (hasFocus()) {
        p.setPen(QPen(theme::withAlpha(theme::accent, 0.8), 1.5));
        p.setBrush(Qt::NoBrush);
        p.drawEllipse(c, bodyR + 1.25, bodyR + 1.25);
    }

    p.setPen(QPen(!enabled ? theme::textDisabled : dimmed_ ? theme::textSecondary : theme::textPrimary,
                  std::max(2.0, size_ * 0.045),
                  Qt::SolidLine, Qt::RoundCap));
    p.drawLine(theme::onDial(c, bodyR * 0.42, angle), theme::onDial(c, bodyR * 0.88, angle));

    p.setFont(theme::monoFont(theme::readoutPx));
    p.setPen(!enabled ? theme::textDisabled : dragStart_ ? theme::accent : dimmed_ ? theme::textSecondary : theme::textPrimary);
    p.drawText(QRectF(0, knobSquare().bottom(), width(), valueHeight), Qt::AlignHCenter | Qt::AlignVCenter,
               valueText());
}

void SSLKnob::mousePressEvent(QMouseEvent* e) {
    if (e->button() == Qt::RightButton) {
        openEntry();
        return e->accept();
    }
    if (e->button() != Qt::LeftButton) return QWidget::mousePressEvent(e);
    dragStart_ = value_;
    dragOriginY_ = e->position().y();
    update();
}

void SSLKnob::mouseMoveEvent(QMouseEvent* e) {
    if (!dragStart_ || !(e->buttons() & Qt::LeftButton)) return QWidget::mouseMoveEvent(e);
    const double dy = e->position().y() - dragOriginY_;  // upward is negative
    edit(*dragStart_ + (high_ - low_) * (-dy / dragSpan));
}

void SSLKnob::mouseReleaseEvent(QMouseEvent* e) {
    if (e->button() != Qt::LeftButton) return QWidget::mouseReleaseEvent(e);
    dragStart_.reset();
    update();
}

void SSLKnob::mouseDoubleClickEvent(QMouseEvent* e) {
    if (e->button() != Qt::LeftButton) return QWidget::mouseDoubleClickEvent(e);
    edit(default_, false);
}

void SSLKnob::wheelEvent(QWheelEvent* e) {
    // Without focus the wheel belongs to the scrolling column around the knob: a knob passing
    // under the pointer must never turn on its own.
    if (!hasFocus()) return e->ignore();
    // angleDelta is in eighths of a degree, 120 to a notch; high-resolution wheels send less.
    const double notches = e->angleDelta().y() / 120.0;
    if (notches == 0) return QWidget::wheelEvent(e);
    // A fine wheel's small turns add up until they reach the grid: each alone would round away.
    wheelTravel_ += notches * (high_ - low_) / 100.0;
    const double target = value_ + wheelTravel_;
    edit(target);
    wheelTravel_ = target - value_;
    if (std::fabs(wheelTravel_) >= step()) wheelTravel_ = 0;  // held at an end of the range
    e->accept();
}

void SSLKnob::keyPressEvent(QKeyEvent* e) {
    // At least one step, so that a key always moves a knob whose step is coarser than a hundredth.
    const double fine = std::max((high_ - low_) / 100.0, step()), coarse = (high_ - low_) / 10.0;
    switch (e->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter: openEntry(); break;
    case Qt::Key_Up:
    case Qt::Key_Right: edit(value_ + fine); break;
    case Qt::Key_Down:
    case Qt::Key_Left: edit(value_ - fine); break;
    case Qt::Key_PageUp: edit(value_ + coarse); break;
    case Qt::Key_PageDown: edit(value_ - coarse); break;
    case Qt::Key_Home: edit(low_, false); break;
    case Qt::Key_End: edit(high_, false); break;
    default: return QWidget::keyPressEvent(e);
    }
    e->accept();
}

void SSLKnob::contextMenuEvent(QContextMenuEvent* e) {
    openEntry();
    e->accept();
}

bool SSLKnob::event(QEvent* e) {
    // The name in the tooltip may have been given after the last change of value.
    if (e->type() == QEvent::ToolTip || e->type() == QEvent::Polish) updateToolTip();
    return QWidget::event(e);
}

void SSLKnob::openEntry() {
    if (entry_ && entry_->isVisible()) return;
    dragStart_.reset();
    const int h = std::max(20, int(std::ceil(valueHeight)) + 4);
    entry_ = new ValueEntry(scale(), value_, this, QRect(0, height() - h, width(), h));
    connect(entry_, &ValueEntry::accepted, this, [this](double v) { edit(v); });
}

void SSLKnob::enterEvent(QEnterEvent*) {
    hovered_ = true;
    update();
}

void SSLKnob::leaveEvent(QEvent*) {
    hovered_ = false;
    update();
}

void SSLKnob::focusInEvent(QFocusEvent* e) {
    QWidget::focusInEvent(e);
    update();
}

void SSLKnob::focusOutEvent(QFocusEvent* e) {
    QWidget::focusOutEvent(e);
    dragStart_.reset();
    wheelTravel_ = 0;
    update();
}

void SSLKnob::changeEvent(QEvent* e) {
    QWidget::changeEvent(e);
    if (e->type() == QEvent::EnabledChange) update();
}

AccessibleReading SSLKnob::accessibleReading() const {
    AccessibleReading r;
    r.role = QAccessible::Dial;
    r.value = valueText();
    r.number = value_;
    r.minimum = std::min(low_, high_);
    r.maximum = std::max(low_, high_);
    r.step = step();
    return r;
}

void SSLKnob::setAccessibleNumber(double value) { edit(value); }

}  // namespace velmora
