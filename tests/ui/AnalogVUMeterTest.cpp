#include <QAccessible>
#include <gtest/gtest.h>
#include <limits>
#include <numbers>

#include "ui/AnalogVUMeter.h"
#include "UiTesting.h"

namespace velmora::test {
namespace {

// Over a 90° sweep from reference - 24 (left, -45°) to reference + 6 (right, +45°).
double expectedAngle(double value, double reference) {
    const double delta = std::clamp(value - reference, -24.0, 6.0);
    return (delta + 24) / 30 * 90 - 45;
}

QPointF along(QPointF pivot, double degrees, double distance) {
    const double a = degrees * std::numbers::pi / 180;
    return pivot + QPointF(distance * std::sin(a), -distance * std::cos(a));
}

bool needleColoured(const QColor& c) { return c.red() > 150 && c.red() - c.blue() > 90; }

TEST(AnalogVUMeter, NeedleReadsTheValueAgainstTheReferenceAndPinsAtTheEnds) {
    AnalogVUMeter meter;
    meter.resize(meter.sizeHint());
    meter.setTitle("SONIE (VU · M)");
    meter.setReference(-23);
    meter.setDeltas(-24, 6);
    meter.setUnit("LUFS");
    meter.setSweep(90);

    const double minusInfinity = -std::numeric_limits<double>::infinity();
    for (double value : {-23.0, -35.0, -19.5, -5.0, -60.0, minusInfinity}) {
        SCOPED_TRACE(value);
        meter.setValue(value);
        const double angle = expectedAngle(std::isfinite(value) ? value : -100, -23);
        for (double ratio : {1.0, 2.0}) {
            const QImage image = snapshot(meter, ratio);
            keepForReview(image, "vu");
            EXPECT_TRUE(needleColoured(pixelAt(image, along(meter.pivot(), angle, 40))));
            // Fifteen degrees off there is only the dial.
            const double away = angle > 0 ? angle - 15 : angle + 15;
            EXPECT_FALSE(needleColoured(pixelAt(image, along(meter.pivot(), away, 40))));
        }
    }

    meter.setValue(-19.46);
    QAccessibleInterface* a = QAccessible::queryAccessibleInterface(&meter);
    EXPECT_EQ(a->text(QAccessible::Name), "SONIE (VU · M)");
    EXPECT_EQ(a->text(QAccessible::Value), "-19.5 LUFS");
    meter.setValue(minusInfinity);
    EXPECT_EQ(a->text(QAccessible::Value), "—");
}

}  // namespace
}  // namespace velmora::test
