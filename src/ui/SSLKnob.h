#pragma once
// The rotary control of every continuous chain setting: a 270° travel from -135° (minimum) to
// +135° (maximum) with eleven ticks, the label above and the value below. A vertical drag of
// 150 points covers the whole range whatever the knob's size, so every knob of the rack feels
// the same under the hand. With focus, the arrow keys move 1/100 of the range, Page Up and Page
// Down 1/10, Home and End go to the ends; the wheel moves 1/100 a notch, with focus only (after
// a click or Tab), so that scrolling past the knob leaves it alone; a double-click puts the
// default back. Enter with focus, or a right-click, opens a field to type the value.
//
// Values move on a grid of `step` (a 1-2-5 step near a hundredth of the range unless told) and
// are shown at its precision: "+1.4 dB" for a 0.2 dB step. A dimmed knob (its stage bypassed)
// still turns, drawn in grey so that it never reads as acting on the sound.
//
// A pure view: setValue() shows a value and says nothing; valueEdited() reports what the user
// did, already clamped to the range.
#include <QColor>
#include <QPointer>
#include <QString>
#include <QWidget>
#include <optional>

#include "ui/LayerCache.h"
#include "ui/NumberText.h"
#include "ui/StudioAccessible.h"
#include "ui/ValueEntry.h"

namespace velmora {

class SSLKnob : public QWidget, public AccessibleComponent {
    Q_OBJECT
public:
    // Vertical travel, in logical pixels, that sweeps the whole range.
    static constexpr double dragSpan = 150;
    static constexpr int tickCount = 11;

    explicit SSLKnob(QWidget* parent = nullptr);
    // `format` is printf-style: a "+" in it signs positive values; the decimals come from the
    // step. The unit follows the number after a space, or stuck to it when it starts with ':'.
    SSLKnob(const QString& label, double low, double high, const char* format, const QString& unit,
            const QColor& color, int size, QWidget* parent = nullptr);

    void setLabel(const QString& label);
    void setRange(double low, double high);
    void setFormat(const char* format);
    void setUnit(const QString& unit);
    void setColor(const QColor& color);
    void setKnobSize(int size);
    void setDefaultValue(double value);
    void setValue(double value);  // clamped to the range, shown as it is (not moved onto the grid)
    void setStep(double step);    // 0: the 1-2-5 step nearest under a hundredth of the range
    void setDimmed(bool dimmed);

    const QString& label() const { return label_; }
    double value() const { return value_; }
    double low() const { return low_; }
    double high() const { return high_; }
    double defaultValue() const { return default_; }
    int knobSize() const { return size_; }
    double step() const;
    bool isDimmed() const { return dimmed_; }
    QString valueText() const;  // as drawn under the knob: "+3.0 dB"
    StepScale scale() const;
    // The field open for typing a value; null when none is.
    ValueEntry* entryField() const { return entry_; }
    void openEntry();

    // Degrees clockwise from straight up: -135 at `low`, +135 at `high`.
    static double pointerAngle(double value, double low, double high);
    // Tick i (0 … 10) stands at -135 + 27·i degrees; it is lit when that is at most the pointer
    // angle + 0.5°, so the minimum lights tick 0 alone and the maximum all eleven.
    static double tickAngle(int i) { return -135.0 + 27.0 * i; }
    static bool tickLit(int i, double pointerDeg) { return tickAngle(i) <= pointerDeg + 0.5; }

    // Where things are drawn, in widget coordinates.
    QPointF knobCentre() const;
    QPointF tickMidpoint(int i) const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }
    AccessibleReading accessibleReading() const override;
    void setAccessibleNumber(double value) override;

signals:
    void valueEdited(double value);

protected:
    void paintEvent(QPaintEvent*) override;
    void mousePressEvent(QMouseEvent*) override;
    void mouseMoveEvent(QMouseEvent*) override;
    void mouseReleaseEvent(QMouseEvent*) override;
    void mouseDoubleClickEvent(QMouseEvent*) override;
    void wheelEvent(QWheelEvent*) override;
    void keyPressEvent(QKeyEvent*) override;
    void enterEvent(QEnterEvent*) override;
    void leaveEvent(QEvent*) override;
    void focusInEvent(QFocusEvent*) override;
    void focusOutEvent(QFocusEvent*) override;
    void changeEvent(QEvent*) override;
    void contextMenuEvent(QContextMenuEvent*) override;
    bool event(QEvent*) override;

private:
    double clamp(double v) const;
    // User input: onto the grid (unless told), shown, then reported if it changed.
    void edit(double v, bool onGrid = true);
    void refresh();       // text, tooltip and accessibility after a change of value
    void updateToolTip();
    QRectF knobSquare() const;
    QString formatted(double v) const;
    void paintBody(QPainter& p) const;

    QString label_;
    double low_ = 0, high_ = 1;
    double value_ = 0;
    double default_ = 0;
    NumberStyle format_;  // only its sign counts: the step says the decimals
    QString unit_;
    double step_ = 0;  // 0: from the range
    bool dimmed_ = false;
    double wheelTravel_ = 0;  // turned but not yet a step
    QPointer<ValueEntry> entry_;
    QColor color_;
    int size_ = 52;
    std::optional<double> dragStart_;
    double dragOriginY_ = 0;
    bool hovered_ = false;
    LayerCache body_;
};

}  // namespace velmora
