#include "ui/window/Controls.h"

#include <QContextMenuEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QMenu>
#include <QPainter>
#include <QPushButton>
#include <QSlider>
#include <QVBoxLayout>
#include <cmath>

#include "ui/StudioMenuPicker.h"
#include "ui/StudioTheme.h"

namespace velmora::window {

// --- IconButton -----------------------------------------------------------------------------

IconButton::IconButton(Icon icon, const QString& name, QWidget* parent) : QAbstractButton(parent), icon_(icon) {
    setAccessibleName(name);
    setToolTip(name);
    setFocusPolicy(Qt::TabFocus);
    setCursor(Qt::PointingHandCursor);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void IconButton::setIcon(Icon icon) {
    if (icon == icon_) return;
    icon_ = icon;
    update();
}

void IconButton::setLit(bool lit) {
    if (lit == lit_) return;
    lit_ = lit;
    update();
}

void IconButton::setSide(int side) {
    side_ = side;
    updateGeometry();
}

void IconButton::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    const bool hot = isEnabled() && (underMouse() || isDown());
    p.setPen(QPen(hasFocus() ? theme::accent : theme::panelBorder, 1));
    p.setBrush(isDown() ? theme::well : hot ? theme::knobBody : theme::panel);
    p.drawRoundedRect(r, theme::controlRadius, theme::controlRadius);
    const QColor ink = !isEnabled() ? theme::textDisabled : lit_ ? theme::accent : theme::textPrimary;
    const double inset = std::round(r.height() * 0.25);
    paintIcon(p, icon_, r.adjusted(inset, inset, -inset, -inset), ink);
}

// --- LiveSwitch -----------------------------------------------------------------------------

LiveSwitch::LiveSwitch(QWidget* parent) : QAbstractButton(parent) {
    setText(QStringLiteral("READY"));
    setAccessibleName(QStringLiteral("Master Live"));
    setToolTip(QStringLiteral("Écoute à travers la chaîne sur la carte son choisie (Réglages)"));
    setFocusPolicy(Qt::TabFocus);
    setCursor(Qt::PointingHandCursor);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void LiveSwitch::setLive(bool live) {
    if (live == live_) return;
    live_ = live;
    setText(live ? QStringLiteral("LIVE") : QStringLiteral("READY"));
    update();
}

QSize LiveSwitch::sizeHint() const {
    const double text = QFontMetricsF(theme::captionFont()).horizontalAdvance(QStringLiteral("READY"));
    return QSize(int(std::ceil(text + 44)), 30);
}

void LiveSwitch::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    const QColor red = theme::zoneRed;
    const QColor lamp = !isEnabled() ? theme::textDisabled : live_ ? red : theme::ledGreen;
    if (live_) {
        p.setPen(QPen(theme::withAlpha(red, 0.35), 3));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(r.adjusted(1, 1, -1, -1), r.height() / 2, r.height() / 2);
    }
    p.setPen(QPen(hasFocus() ? theme::accent : live_ ? red : theme::panelBorder, 1));
    p.setBrush(live_ ? theme::withAlpha(red, 0.22) : (underMouse() && isEnabled() ? theme::knobBody : theme::well));
    p.drawRoundedRect(r, r.height() / 2, r.height() / 2);
    const QPointF led(r.left() + 15, r.center().y());
    if (isEnabled()) {
        p.setPen(Qt::NoPen);
        p.setBrush(theme::withAlpha(lamp, 0.35));
        p.drawEllipse(led, 6.5, 6.5);
    }
    p.setPen(Qt::NoPen);
    p.setBrush(lamp);
    p.drawEllipse(led, 4, 4);
    p.setFont(theme::captionFont());
    p.setPen(isEnabled() ? (live_ ? QColor(Qt::white) : theme::textPrimary) : theme::textDisabled);
    p.drawText(r.adjusted(26, 0, -8, 0), Qt::AlignVCenter | Qt::AlignLeft, text());
}

// --- LabeledSlider ----------------------------------------------------------------------------

namespace {

// Passes the wheel on to the control's parents while the control has no focus. An event
// filtered out but left unaccepted goes on to the parent, as one the control ignored would.
class WheelGuard : public QObject {
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject* watched, QEvent* e) override {
        if (e->type() != QEvent::Wheel || static_cast<QWidget*>(watched)->hasFocus()) return false;
        e->ignore();
        return true;
    }
};

}  // namespace

void wheelOnlyWithFocus(QWidget* control) {
    control->setFocusPolicy(Qt::StrongFocus);  // never WheelFocus: the wheel must not take it
    control->installEventFilter(new WheelGuard(control));
}

LabeledSlider::LabeledSlider(const QString& caption, double low, double high, double step,
                             std::function<QString(double)> format, QWidget* parent)
    : QWidget(parent), caption_(caption), low_(low), high_(high), step_(step), format_(std::move(format)) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(2);
    auto* top = new QHBoxLayout;
    top->setSpacing(8);
    auto* title = new QLabel(caption, this);
    title->setFont(theme::bodyFont());
    reading_ = new QLabel(this);
    reading_->setFont(theme::monoFont(theme::bodyPx, true));
    setTextColour(reading_, theme::accent);
    reading_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    top->addWidget(title, 1);
    top->addWidget(reading_);
    column->addLayout(top);
    slider_ = new QSlider(Qt::Horizontal, this);
    wheelOnlyWithFocus(slider_);
    slider_->setRange(0, int(std::lround((high - low) / step)));
    slider_->setPageStep(std::max(1, slider_->maximum() / 10));
    slider_->setAccessibleName(caption);
    slider_->installEventFilter(this);
    setFocusProxy(slider_);  // where a closed value field gives the focus back
    column->addWidget(slider_);
    connect(slider_, &QSlider::valueChanged, this, [this](int position) {
        const double v = low_ + step_ * position;
        showValue(v);
        emit valueEdited(v);
    });
    setValue(low);
}

void LabeledSlider::setValue(double value) {
    const QSignalBlocker quiet(slider_);
    slider_->setValue(int(std::lround((value - low_) / step_)));
    showValue(value);
}

void LabeledSlider::showValue(double value) {
    reading_->setText(format_(value));
    setToolTip(controlToolTip(caption_, reading_->text(), scale().rangeText()));
}

StepScale LabeledSlider::scale() const {
    // The unit is what the reading writes after its number: "dB" in "1.5 dB".
    const QString sample = format_(low_);
    const qsizetype space = sample.indexOf(QLatin1Char(' '));
    return StepScale{low_, high_, step_, space < 0 ? QString() : sample.mid(space + 1), false};
}

void LabeledSlider::openEntry() {
    if (entry_ && entry_->isVisible()) return;
    const QRect at = reading_->geometry();
    const int w = std::max(at.width(), 90), h = std::max(at.height(), 22);
    entry_ = new ValueEntry(scale(), value(), this, QRect(at.right() + 1 - w, at.center().y() - h / 2, w, h));
    connect(entry_, &ValueEntry::accepted, this, [this](double v) {
        // Through the slider, as a drag: it reports once, and only a change.
        slider_->setValue(int(std::lround((v - low_) / step_)));
    });
}

bool LabeledSlider::eventFilter(QObject* watched, QEvent* e) {
    if (watched != slider_) return false;
    if (e->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(e)->key();
        if (key != Qt::Key_Return && key != Qt::Key_Enter) return false;
    } else if (e->type() == QEvent::MouseButtonPress) {
        if (static_cast<QMouseEvent*>(e)->button() != Qt::RightButton) return false;
    } else if (e->type() != QEvent::ContextMenu) {
        return false;
    }
    openEntry();
    return true;
}

void LabeledSlider::contextMenuEvent(QContextMenuEvent* e) {
    openEntry();
    e->accept();
}

double LabeledSlider::value() const { return low_ + step_ * slider_->value(); }

QString LabeledSlider::readingText() const { return reading_->text(); }

// --- SeekBadge --------------------------------------------------------------------------------

SeekBadge::SeekBadge(const QString& label, QWidget* parent) : ValueBadge(label, QStringLiteral("—"), theme::textPrimary, parent) {}

void SeekBadge::setSeekable(bool seekable) {
    if (seekable == seekable_ && (seekable || toolTip().isEmpty())) return;
    seekable_ = seekable;
    setCursor(seekable ? Qt::PointingHandCursor : Qt::ArrowCursor);
    setFocusPolicy(seekable ? Qt::TabFocus : Qt::NoFocus);
    setToolTip(seekable ? QStringLiteral("Cliquer pour placer la lecture à cet endroit") : QString());
}

void SeekBadge::mousePressEvent(QMouseEvent* e) {
    if (seekable_ && isEnabled()) emit activated();
    else ValueBadge::mousePressEvent(e);
}

void SeekBadge::keyPressEvent(QKeyEvent* e) {
    if (seekable_ && (e->key() == Qt::Key_Return || e->key() == Qt::Key_Enter)) emit activated();
    else ValueBadge::keyPressEvent(e);
}

// --- TextLine ---------------------------------------------------------------------------------

TextLine::TextLine(QWidget* parent) : QWidget(parent), color_(theme::textPrimary) {
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
}

void TextLine::setText(const QString& text) {
    if (text == text_) return;
    text_ = text;
    setToolTip(text);
    setAccessibleName(text);
    update();
}

void TextLine::setColor(const QColor& color) {
    color_ = color;
    update();
}

QSize TextLine::sizeHint() const { return QSize(200, fontMetrics().height() + 4); }
QSize TextLine::minimumSizeHint() const { return QSize(40, fontMetrics().height() + 4); }

void TextLine::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setFont(font());
    p.setPen(isEnabled() ? color_ : theme::textDisabled);
    p.drawText(rect(), Qt::AlignLeft | Qt::AlignVCenter, fontMetrics().elidedText(text_, Qt::ElideRight, width()));
}

// --- Helpers ------------------------------------------------------------------------------------

void setTextColour(QWidget* widget, const QColor& colour) {
    if (widget->palette().color(QPalette::WindowText) == colour) return;
    QPalette p = widget->palette();
    p.setColor(QPalette::WindowText, colour);
    widget->setPalette(p);
}

QLabel* makeCaption(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setFont(theme::captionFont());
    setTextColour(label, theme::textSecondary);
    return label;
}

QLabel* makeNote(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    QFont f = theme::bodyFont();
    f.setPixelSize(11);
    label->setFont(f);
    label->setWordWrap(true);
    setTextColour(label, theme::textSecondary);
    return label;
}

QPushButton* makeButton(const QString& text, QWidget* parent) {
    auto* button = new QPushButton(text, parent);
    button->setFont(theme::bodyFont());
    button->setCursor(Qt::PointingHandCursor);
    return button;
}

void fillPicker(StudioMenuPicker* picker, const std::vector<PickerOption>& options,
                const std::function<void(const QVariant&)>& chosen) {
    QMenu* menu = picker->menu();
    menu->clear();
    for (const auto& option : options) {
        QAction* action = menu->addAction(option.label);
        action->setData(option.value);
        QObject::connect(action, &QAction::triggered, picker, [chosen, value = option.value] { chosen(value); });
    }
}

QString stockWidgetStyle() {
    using namespace theme;
    return QStringLiteral(R"(
QPushButton { background: %1; color: %2; border: 1px solid %3; border-radius: 4px; padding: 5px 10px; }
QPushButton:hover { background: %4; }
QPushButton:pressed { background: %5; }
QPushButton:focus { border-color: %6; }
QPushButton:disabled { color: %7; border-color: %3; background: %1; }
QLineEdit { background: %5; color: %2; border: 1px solid %3; border-radius: 4px; padding: 4px 6px;
            selection-background-color: %6; selection-color: %8; }
QLineEdit:focus { border-color: %6; }
QLineEdit:disabled { color: %7; }
QSlider::groove:horizontal { height: 4px; background: %5; border: 1px solid %3; border-radius: 2px; }
QSlider::sub-page:horizontal { background: %6; border-radius: 2px; }
QSlider::handle:horizontal { width: 12px; margin: -5px 0; border-radius: 6px; background: %2; }
QSlider::handle:horizontal:disabled { background: %7; }
QSlider::sub-page:horizontal:disabled { background: %3; }
QProgressBar { background: %5; border: 1px solid %3; border-radius: 3px; max-height: 6px; }
QProgressBar::chunk { background: %6; border-radius: 2px; }
QScrollArea { background: transparent; border: none; }
QScrollBar:vertical { background: %8; width: 10px; margin: 0; }
QScrollBar::handle:vertical { background: %3; min-height: 30px; border-radius: 4px; margin: 1px; }
QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical { height: 0; }
QScrollBar::add-page:vertical, QScrollBar::sub-page:vertical { background: none; }
QMenu { background: %1; color: %2; border: 1px solid %3; }
QMenu::item { padding: 5px 18px; }
QMenu::item:selected { background: %4; }
QToolTip { background: %1; color: %2; border: 1px solid %3; }
QSplitter::handle { background: %8; }
)")
        .arg(panel.name(), textPrimary.name(), panelBorder.name(), knobBody.name(), well.name(), accent.name(),
             textDisabled.name(), chrome.name());
}

}  // namespace velmora::window
