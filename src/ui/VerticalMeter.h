#pragma once
#include "ui/SegmentedMeter.h"

namespace velmora {

// The compact column meter: bar, scale every 12 dB (6 dB for true peak), title above and the
// value under it.
class VerticalMeter : public SegmentedMeter {
    Q_OBJECT
public:
    explicit VerticalMeter(QWidget* parent = nullptr);
    VerticalMeter(const QString& title, bool isTP, QWidget* parent = nullptr);

    QRectF barRect() const override;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    int labelEvery() const override { return scale_.truePeak ? 6 : 12; }
    void paintStatic(QPainter& p) const override;
    void paintReadings(QPainter& p) const override;
};

}  // namespace velmora
