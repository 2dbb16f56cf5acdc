#pragma once
// The segmented loudness and true-peak bars. One segment per dB from 0 down to -60 for
// loudness, one per half dB from 0 down to -30 for true peak; segment i stands for the level
// -i (or -0.5·i) and is lit when that level less one step is at most the value, so a meter at
// -5 dB lights -4 and below, and minus infinity (or NaN) lights nothing. A segment's colour
// depends on its level alone: above -6 red, above -12 amber, above -24 yellow, else green.
//
// BigMeter and VerticalMeter share all of this; they differ in layout and in how many scale
// labels they carry.
#include <QColor>
#include <QString>
#include <QWidget>
#include <limits>
#include <vector>

#include "ui/LayerCache.h"
#include "ui/StudioAccessible.h"

namespace velmora {

struct SegmentScale {
    bool truePeak = false;

    double step() const { return truePeak ? 0.5 : 1.0; }
    double span() const { return truePeak ? 30.0 : 60.0; }  // dB from the top to the bottom
    int segmentCount() const { return 60; }
    double level(int i) const { return -step() * i; }
    bool lit(int i, double valueDB) const { return level(i) - step() <= valueDB; }
    static QColor zoneColour(double levelDB);
    // Labelled levels, 0 first, `every` dB apart down to the bottom of the scale.
    std::vector<int> labelLevels(int every) const;
};

class SegmentedMeter : public QWidget, public AccessibleComponent {
    Q_OBJECT
public:
    void setTitle(const QString& title);
    void setValue(double valueDB);
    void setTruePeak(bool isTP);
    void setTarget(double targetDB);

    const QString& title() const { return title_; }
    double value() const { return value_; }
    bool isTruePeak() const { return scale_.truePeak; }
    double target() const { return target_; }

    // Where the bar and each segment are drawn, in widget coordinates; segment 0 is at the top.
    virtual QRectF barRect() const = 0;
    QRectF segmentRect(int i) const;

    AccessibleReading accessibleReading() const override;

protected:
    explicit SegmentedMeter(QWidget* parent);
    void paintEvent(QPaintEvent*) override;
    void resizeEvent(QResizeEvent*) override;

    // Scale labels every so many dB at this scale.
    virtual int labelEvery() const = 0;
    // What does not move with the value: title, scale, the well, unlit segments.
    virtual void paintStatic(QPainter& p) const = 0;
    // What does: the readout, markers.
    virtual void paintReadings(QPainter& p) const = 0;

    void paintWell(QPainter& p) const;
    void paintUnlit(QPainter& p) const;
    void paintLit(QPainter& p) const;
    // The scale labels, each centred on its level, in the column from `x` of `width`.
    void paintScale(QPainter& p, double x, double width, Qt::Alignment align) const;
    QString readout() const;  // "%.1f", or "—" when the value cannot be shown
    void invalidateStatic();

    QString title_;
    double value_ = -std::numeric_limits<double>::infinity();
    double target_ = -std::numeric_limits<double>::infinity();
    SegmentScale scale_;

private:
    LayerCache static_;
};

}  // namespace velmora
