// Figures that take the type their box allows: the big integrated value, the readings' badges
// and the needle meters' footer, from the narrowest box each accepts to a 4K screen's, drawn
// at whole and fractional device pixel ratios. A figure is whole when its text in the font it
// is drawn in fits its box, and when, in pixels, it stops short of the widget's right edge.
#include <QFontMetricsF>
#include <gtest/gtest.h>

#include "UiTesting.h"
#include "ui/AnalogVUMeter.h"
#include "ui/BigMeter.h"
#include "ui/FittedText.h"
#include "ui/StudioTheme.h"
#include "ui/ValueBadge.h"

namespace velmora::test {
namespace {

const QColor probe(255, 0, 255);  // a colour nothing else in these widgets uses

// The rightmost logical x where `colour` shows in `image`, -1 when it does not.
double rightmostOf(const QImage& image, const QColor& colour) {
    int rightmost = -1;
    for (int y = 0; y < image.height(); ++y)
        for (int x = image.width() - 1; x > rightmost; --x)
            if (colourDistance(image.pixelColor(x, y), colour) < 40) {
                rightmost = x;
                break;
            }
    return rightmost < 0 ? -1 : (rightmost + 1) / image.devicePixelRatio();
}

TEST(FittedText, TheLargestSizeThatFitsAndNeverBelowTheSmallest) {
    const auto mono = [](int px) { return theme::monoFont(px); };
    const QString text = QStringLiteral("-23.4");
    const double at40 = QFontMetricsF(mono(40)).horizontalAdvance(text);
    EXPECT_EQ(fittedPixelSize(text, at40 + 1, 40, 12, mono), 40);  // room enough: as preferred
    for (double width : {at40 * 0.8, at40 * 0.5, at40 * 0.33}) {
        const int px = fittedPixelSize(text, width, 40, 12, mono);
        EXPECT_LE(QFontMetricsF(mono(px)).horizontalAdvance(text), width);
        EXPECT_GT(QFontMetricsF(mono(px + 1)).horizontalAdvance(text), width);  // and the largest such
    }
    EXPECT_EQ(fittedPixelSize(text, 3, 40, 12, mono), 12);
}

TEST(BigMeterReadout, ShrinksToItsBoxAndGrowsInATallMeterWithoutCuttingAFigure) {
    BigMeter meter(QStringLiteral("INTÉGRÉE"), QStringLiteral("LUFS"), false);
    meter.setTarget(-23);
    meter.setValueColor(probe);
    const int narrowest = meter.minimumSizeHint().width();
    int lastPx = 0;
    for (int width = narrowest; width <= meter.sizeHint().width() + 60; width += 17) {
        meter.resize(width, 260);
        for (double value : {-23.4, -70.0, -100.4}) {
            meter.setValue(value);
            const double advance = QFontMetricsF(meter.readoutFont()).horizontalAdvance(meter.readoutText());
            EXPECT_LE(advance, meter.readoutRect().width()) << width << " px, " << value;
        }
        meter.setValue(-23.4);
        const int px = meter.readoutFont().pixelSize();
        EXPECT_GE(px, lastPx) << "a wider meter never has smaller type";
        EXPECT_LE(px, theme::bigReadoutPx) << "the usual height keeps the usual size";
        lastPx = px;
    }
    EXPECT_EQ(lastPx, theme::bigReadoutPx);

    // In pixels, at whole and fractional ratios, the narrowest meter's figure ends inside it.
    meter.resize(narrowest, 260);
    meter.setValue(-23.4);
    for (double ratio : {1.0, 1.25, 1.5, 2.0}) {
        const QImage image = snapshot(meter, ratio);
        const double right = rightmostOf(image, probe);
        EXPECT_GT(right, meter.readoutRect().left()) << ratio;
        EXPECT_LT(right, meter.width() - 1) << ratio;
        if (ratio == 1.25) keepForReview(image, "bigmeter-narrowest-1.25");
    }

    // A tall and wide meter (a 4K screen) sets the value larger, up to twice the usual size.
    meter.resize(320, 640);
    EXPECT_GT(meter.readoutFont().pixelSize(), theme::bigReadoutPx);
    EXPECT_LE(meter.readoutFont().pixelSize(), 2 * theme::bigReadoutPx);
    EXPECT_LE(QFontMetricsF(meter.readoutFont()).horizontalAdvance(meter.readoutText()), meter.readoutRect().width());
}

TEST(ValueBadgeFit, ANarrowBadgeSetsItsValueSmallerAndShortensItsLabel) {
    ValueBadge badge(QStringLiteral("LRA  -25.4 … -20.2"), QStringLiteral("-12.3"), probe);
    badge.setLabel(QStringLiteral("LRA  -25.4 … -20.2"), QStringLiteral("LRA"));
    badge.setUnit(QStringLiteral("LUFS"));
    badge.resize(badge.sizeHint());
    EXPECT_EQ(badge.valueFont().pixelSize(), 16);
    EXPECT_EQ(badge.shownLabel(), QStringLiteral("LRA  -25.4 … -20.2"));

    badge.resize(badge.minimumSizeHint());
    ASSERT_LT(badge.width(), badge.sizeHint().width());
    EXPECT_LT(badge.valueFont().pixelSize(), 16);
    EXPECT_LE(badge.valueAdvance(), badge.valueRect().width());
    EXPECT_EQ(badge.shownLabel(), QStringLiteral("LRA"));
    for (double ratio : {1.0, 1.5}) {
        const QImage image = snapshot(badge, ratio);
        const double right = rightmostOf(image, probe);
        EXPECT_GT(right, 0) << ratio;
        EXPECT_LT(right, badge.width() - 4) << ratio;
    }
}

TEST(AnalogVUMeterFit, TheFooterSharesItsLineAndTheDialGrowsWithTheMeter) {
    AnalogVUMeter meter;
    meter.setTitle(QStringLiteral("TRUE PEAK (VU)"));
    meter.setUnit(QStringLiteral("dBTP"));
    meter.setValue(-4.8);
    const auto footerFits = [&] {
        const double title = QFontMetricsF(meter.titleFont()).horizontalAdvance(QStringLiteral("TRUE PEAK (VU)"));
        const double reading = QFontMetricsF(meter.readoutFont()).horizontalAdvance(meter.accessibleReading().value);
        return title + reading <= meter.footerRect().width();
    };
    meter.resize(meter.minimumSizeHint());
    EXPECT_TRUE(footerFits());
    meter.setValue(-104.8);  // a longer reading than any usual one still fits
    EXPECT_TRUE(footerFits());
    meter.setValue(-4.8);

    meter.resize(meter.sizeHint());
    const double usualTop = meter.pivot().y();
    const int usualPx = meter.readoutFont().pixelSize();
    EXPECT_TRUE(footerFits());
    // On a large screen the dial, the scale and the footer's type grow.
    meter.resize(900, 700);
    EXPECT_TRUE(footerFits());
    EXPECT_GT(meter.readoutFont().pixelSize(), usualPx);
    EXPECT_GT(meter.pivot().y(), 3 * usualTop);
    // A dial the width limits stands in the middle of the height left over, not at the bottom.
    meter.resize(300, 700);
    EXPECT_LT(meter.pivot().y(), meter.footerRect().top() - 100);
    const QImage image = snapshot(meter, 1.25);
    keepForReview(image, "needle-tall-1.25");
}

}  // namespace
}  // namespace velmora::test
