#pragma once
// How much the bus compressor is taking off: a bar that grows down from 0 dB to a full scale of
// `maxDB`, the scale in whole dB, and the reading under it. The reduction is a level taken off,
// so 3 and -3 both read as 3 dB of reduction.
#include <QWidget>

#include "ui/LayerCache.h"
#include "ui/StudioAccessible.h"

namespace velmora {

class GainReductionMeter : public QWidget, public AccessibleComponent {
    Q_OBJECT
public:
    explicit GainReductionMeter(QWidget* parent = nullptr);

    void setReduction(double reductionDB);
    void setMaximum(double maxDB);
    double reduction() const { return reductionDB_; }
    double maximum() const { return maxDB_; }

    QRectF barRect() const;
    // The part of the bar lit for the current reduction.
    QRectF fillRect() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return QSize(sizeHint().width(), 120); }
    AccessibleReading accessibleReading() const override;

protected:
    void paintEvent(QPaintEvent*) override;
    void resizeEvent(QResizeEvent*) override;

private:
    double shownDB() const;  // the magnitude, 0 when it cannot be measured
    QString readout() const;  // "-3.2", and "0.0" rather than "-0.0"
    double labelStep() const;
    void paintScale(QPainter& p) const;

    double reductionDB_ = 0;
    double maxDB_ = 12;
    LayerCache scale_;
};

}  // namespace velmora
