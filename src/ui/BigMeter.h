#pragma once
#include <QColor>

#include "ui/SegmentedMeter.h"

namespace velmora {

// The large integrated-loudness meter: bar, scale every 6 dB (3 dB for true peak), the value
// large beside it with its unit and the target, and a marker at the target on the bar. The
// value's type follows the box: larger in a tall meter, smaller in a narrow one, never cut.
class BigMeter : public SegmentedMeter {
    Q_OBJECT
public:
    explicit BigMeter(QWidget* parent = nullptr);
    BigMeter(const QString& title, const QString& unit, bool isTP, QWidget* parent = nullptr);

    void setUnit(const QString& unit);
    // The readout's colour; the window colours it by the norm's verdict.
    void setValueColor(const QColor& color);
    const QColor& valueColor() const { return valueColor_; }

    QRectF barRect() const override;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    AccessibleReading accessibleReading() const override;  // the readout with its unit

    // The value as drawn: its text, the font it is drawn in and the box it must fit.
    QString readoutText() const { return readout(); }
    QFont readoutFont() const;
    QRectF readoutRect() const;

protected:
    int labelEvery() const override { return scale_.truePeak ? 3 : 6; }
    void paintStatic(QPainter& p) const override;
    void paintReadings(QPainter& p) const override;
    void resizeEvent(QResizeEvent*) override;

private:
    double readoutLeft() const;
    // The readout's size for this box, from a typical reading so the type does not change as
    // the value does; and the target line's.
    int preferredPx() const;  // for this height, before fitting the width
    int readoutPx() const;
    int targetPx() const;
    QString targetText() const;

    QString unit_;
    QColor valueColor_;
    int hintedPx_ = 0;  // the type the size hint was last given for
};

}  // namespace velmora
