#include <QAccessible>
#include <gtest/gtest.h>
#include <limits>

#include "ui/BigMeter.h"
#include "ui/GainReductionMeter.h"
#include "ui/StudioTheme.h"
#include "ui/VerticalMeter.h"
#include "UiTesting.h"

namespace velmora::test {
namespace {

// The four zones as the meters are read: written out by level, apart from the code's rule.
QColor zoneOf(double level) {
    if (level >= -5.5) return QColor::fromRgbF(0.93f, 0.27f, 0.27f);   // 0 … -5.5
    if (level >= -11.5) return QColor::fromRgbF(0.98f, 0.78f, 0.18f);  // -6 … -11.5
    if (level >= -23.5) return QColor::fromRgbF(0.85f, 0.82f, 0.18f);  // -12 … -23.5
    return QColor::fromRgbF(0.22f, 0.78f, 0.30f);
}

// What an unlit segment shows: its zone at 10 % over the meter's well.
QColor unlitOf(double level) {
    const QColor zone = zoneOf(level), well = theme::well;
    const auto mix = [](int a, int b) { return int(std::lround(0.9 * a + 0.1 * b)); };
    return QColor(mix(well.red(), zone.red()), mix(well.green(), zone.green()), mix(well.blue(), zone.blue()));
}

// Samples the middle of every segment and checks it against `litFrom`: segments at or below
// that level lit in their zone colour, the others unlit. `step` is the dB per segment.
void expectSegments(SegmentedMeter& meter, double step, double litFrom, const char* name) {
    for (double ratio : {1.0, 2.0}) {
        SCOPED_TRACE(ratio);
        const QImage image = snapshot(meter, ratio);
        keepForReview(image, name);
        for (int i = 0; i < 60; ++i) {
            const double level = -step * i;
            const QColor seen = pixelAt(image, meter.segmentRect(i).center());
            const bool lit = level <= litFrom;
            EXPECT_LE(colourDistance(seen, lit ? zoneOf(level) : unlitOf(level)), 2)
                << "segment " << i << " (" << level << " dB) should be " << (lit ? "lit" : "unlit") << ", is "
                << seen.name().toStdString();
        }
    }
}

TEST(SegmentedMeters, LoudnessMeterAtMinus5LightsFromMinus4DownInTheZoneColours) {
    BigMeter meter("INTÉGRÉE", "LUFS", false);
    meter.resize(meter.sizeHint());
    meter.setValue(-5);
    expectSegments(meter, 1.0, -4, "bigmeter-m5");

    meter.setValue(-30);  // only green
    expectSegments(meter, 1.0, -29, "bigmeter-m30");
}

TEST(SegmentedMeters, TargetIsMarkedAcrossTheBarOverTheLitSegments) {
    BigMeter meter("INTÉGRÉE", "LUFS", false);
    meter.resize(meter.sizeHint());
    meter.setTarget(-23);
    meter.setValue(-14);
    for (double ratio : {1.0, 2.0}) {
        const QImage image = snapshot(meter, ratio);
        const QRectF bar = meter.barRect();
        const double y = bar.top() + bar.height() * 23 / 60;
        // A white line over a yellow segment: blue only comes from the line.
        const QColor line = pixelAt(image, QPointF(bar.center().x(), y));
        EXPECT_GT(line.blue(), 150) << line.name().toStdString();
        EXPECT_LE(colourDistance(pixelAt(image, QPointF(bar.right() + 5, y)), theme::accent), 40);
        // Elsewhere the lit yellow segment shows as it is.
        EXPECT_LE(colourDistance(pixelAt(image, meter.segmentRect(20).center()), zoneOf(-20)), 2);
    }
}

TEST(SegmentedMeters, UnmeasurableValuesLightNothing) {
    VerticalMeter meter("S", false);
    meter.resize(meter.sizeHint());
    for (double value : {-std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
        meter.setValue(value);
        expectSegments(meter, 1.0, -1000, "verticalmeter-unmeasured");
        EXPECT_EQ(QAccessible::queryAccessibleInterface(&meter)->text(QAccessible::Value), "—");
    }
}

TEST(SegmentedMeters, TruePeakMeterAtMinus1Point2LightsFromMinus1Down) {
    VerticalMeter meter("TP", true);
    meter.resize(meter.sizeHint().width(), 260);
    meter.setValue(-1.2);
    expectSegments(meter, 0.5, -1.0, "verticalmeter-tp-m1.2");

    BigMeter big("TRUE PEAK", "dBTP", true);
    big.resize(big.sizeHint());
    big.setValue(-1.2);
    expectSegments(big, 0.5, -1.0, "bigmeter-tp-m1.2");
}

TEST(SegmentedMeters, ScreenReadersGetTitleAndReading) {
    BigMeter meter("INTÉGRÉE", "LUFS", false);
    meter.setValue(-23.04);
    QAccessibleInterface* a = QAccessible::queryAccessibleInterface(&meter);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->text(QAccessible::Name), "INTÉGRÉE");
    EXPECT_EQ(a->text(QAccessible::Value), "-23.0 LUFS");
    ASSERT_NE(a->valueInterface(), nullptr);
    EXPECT_EQ(a->valueInterface()->minimumValue().toDouble(), -60);
}

TEST(GainReductionMeter, FillsItsShareOfTheFullScaleAndStopsAtIt) {
    GainReductionMeter meter;
    meter.resize(meter.sizeHint());
    meter.setMaximum(12);
    meter.setReduction(-3);  // a reduction reads the same with either sign
    EXPECT_NEAR(meter.fillRect().height(), meter.barRect().height() / 4, 1e-9);
    const QImage image = snapshot(meter, 2);
    keepForReview(image, "gain-reduction-3");
    const QRectF fill = meter.fillRect(), bar = meter.barRect();
    EXPECT_LE(colourDistance(pixelAt(image, fill.center()), theme::accent), 2);
    EXPECT_GT(colourDistance(pixelAt(image, QPointF(bar.center().x(), fill.bottom() + 10)), theme::accent), 100);
    EXPECT_EQ(QAccessible::queryAccessibleInterface(&meter)->text(QAccessible::Value), "-3.0 dB");

    meter.setReduction(20);
    EXPECT_DOUBLE_EQ(meter.fillRect().height(), meter.barRect().height());
    meter.setReduction(0.01);
    EXPECT_EQ(QAccessible::queryAccessibleInterface(&meter)->text(QAccessible::Value), "0.0 dB");
}

}  // namespace
}  // namespace velmora::test
