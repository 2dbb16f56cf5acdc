#include <QApplication>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>
#include <complex>
#include <gtest/gtest.h>
#include <numbers>

#include "measurement/Biquad.h"
#include "ui/EQCurveGraphView.h"
#include "ui/StudioTheme.h"
#include "UiTesting.h"

namespace velmora::test {
namespace {

MasterParams shapedChain() {
    MasterParams p;
    p.eqOn = true;
    p.hpfOn = true;
    p.hpfFreq = 80;
    p.lsFreq = 150, p.lsGain = 4;
    p.b1Freq = 500, p.b1Gain = -6, p.b1Q = 2;
    p.b2Freq = 4000, p.b2Gain = 3, p.b2Q = 0.7;
    p.hsFreq = 10000, p.hsGain = -3;
    // The tonal bands belong to their own panel and must not bend this curve.
    p.teqOn = true;
    p.tMidFreq = 1000, p.tMidGain = 8;
    p.tLsGain = -5;
    return p;
}

// The response worked out here from the designs themselves: H(e^jω) of each section evaluated
// directly, summed in dB, clamped to the graph's ±15 dB.
double expectedDB(const MasterParams& p, double fs, double hz) {
    const std::vector<Biquad> sections{designHighPass(fs, p.hpfFreq), designLowShelf(fs, p.lsFreq, p.lsGain),
                                       designPeaking(fs, p.b1Freq, p.b1Gain, p.b1Q),
                                       designPeaking(fs, p.b2Freq, p.b2Gain, p.b2Q),
                                       designHighShelf(fs, p.hsFreq, p.hsGain)};
    const std::complex<double> z = std::exp(std::complex<double>(0, -2 * std::numbers::pi * hz / fs));
    double db = 0;
    for (const Biquad& s : sections)
        db += 20 * std::log10(std::abs((s.b0 + s.b1 * z + s.b2 * z * z) / (1.0 + s.a1 * z + s.a2 * z * z)));
    return std::clamp(db, -15.0, 15.0);
}

std::unique_ptr<EQCurveGraphView> graph(const MasterParams& p, double rate, int width = 480) {
    auto g = std::make_unique<EQCurveGraphView>();
    g->resize(width, 220);
    g->setSampleRate(rate);
    g->setParams(p);
    return g;
}

TEST(EQCurveGraphView, CurveIsTheFiveBandCascadeAtTheFilesRate) {
    const MasterParams p = shapedChain();
    for (double rate : {48000.0, 96000.0, 44100.0}) {
        SCOPED_TRACE(rate);
        auto g = graph(p, rate);
        for (double hz : {25.0, 80.0, 150.0, 500.0, 1000.0, 4000.0, 10000.0, 19000.0})
            EXPECT_NEAR(g->curveDB(g->xForFrequency(hz)), expectedDB(p, rate, hz), 1e-9) << hz << " Hz";
    }
    // No rate yet: drawn for 48 kHz.
    auto g = graph(p, 0);
    EXPECT_NEAR(g->curveDB(g->xForFrequency(15000)), expectedDB(p, 48000, 15000), 1e-9);
}

TEST(EQCurveGraphView, GainsWithinTheGateAndNoHighPassDrawAFlatLine) {
    MasterParams p;
    p.eqOn = true;
    p.lsGain = p.b1Gain = 0.04, p.b2Gain = p.hsGain = -0.05;
    auto g = graph(p, 48000);
    for (double x = 0; x <= g->plotRect().width(); x += 10) EXPECT_EQ(g->curveDB(x), 0);
}

TEST(EQCurveGraphView, DrawnCurveStandsAtTheComputedHeightAtRatios1And2) {
    const MasterParams p = shapedChain();
    auto g = graph(p, 48000);
    const QRectF plot = g->plotRect();
    for (double ratio : {1.0, 2.0}) {
        SCOPED_TRACE(ratio);
        const QImage image = snapshot(*g, ratio);
        keepForReview(image, "eq-curve");
        // Away from the band points, which are drawn over the curve.
        for (double hz : {30.0, 250.0, 1000.0, 2000.0, 16000.0}) {
            // The curve is a line through the response every 2 points: the expected height is on
            // the line between the two computed vertices around the sampled pixel column.
            const double vertex = 2 * std::round(g->xForFrequency(hz) / 2);
            const double x = vertex + 0.5 / ratio;
            const double y0 = g->yForGain(expectedDB(p, 48000, g->frequencyAt(vertex)));
            const double y1 = g->yForGain(expectedDB(p, 48000, g->frequencyAt(vertex + 2)));
            const double expectedY = plot.top() + y0 + (y1 - y0) * (x - vertex) / 2;
            EXPECT_NEAR(accentLineY(image, plot.left() + x), expectedY, 1.0) << hz << " Hz";
        }
    }
}

TEST(EQCurveGraphView, PeakLineDecaysTo92PercentAndRestartsOnANewBandCount) {
    EQCurveGraphView g;
    g.setSpectrum({0.5f, 0.8f, 0.1f});
    EXPECT_EQ(g.peakHold(), (std::vector<float>{0.5f, 0.8f, 0.1f}));
    g.setSpectrum({0.6f, 0.2f, 0.0f});
    EXPECT_EQ(g.peakHold(), (std::vector<float>{0.6f, 0.92f * 0.8f, 0.92f * 0.1f}));
    g.setSpectrum(std::vector<float>(256, 0.3f));
    EXPECT_EQ(g.peakHold(), std::vector<float>(256, 0.3f));
}

TEST(EQCurveGraphView, PointDragsClampToTheBandRanges) {
    auto g = graph(shapedChain(), 48000);
    QSignalSpy edits(g.get(), &EQCurveGraphView::paramsEdited);
    const QRectF plot = g->plotRect();

    // The low mid, past the right edge and above the top.
    drag(*g, g->bandPoint(EQBand::lowMid), QPointF(plot.right() + 80, plot.top() - 60));
    EXPECT_EQ(g->params().b1Freq, 2000);
    EXPECT_EQ(g->params().b1Gain, 12);
    ASSERT_FALSE(edits.isEmpty());
    EXPECT_EQ(edits.last().at(0).value<MasterParams>().b1Freq, 2000);

    drag(*g, g->bandPoint(EQBand::lowMid), QPointF(plot.left() - 80, plot.bottom() + 60));
    EXPECT_EQ(g->params().b1Freq, 100);
    EXPECT_EQ(g->params().b1Gain, -12);

    // Within range the point lands where it is let go.
    drag(*g, g->bandPoint(EQBand::highMid), QPointF(plot.left() + g->xForFrequency(2500), plot.top() + g->yForGain(-4.5)));
    EXPECT_NEAR(g->params().b2Freq, 2500, 1e-6);
    EXPECT_NEAR(g->params().b2Gain, -4.5, 1e-9);

    // The high-pass moves sideways only.
    const MasterParams before = g->params();
    drag(*g, g->bandPoint(EQBand::highPass), QPointF(plot.right() + 10, plot.top()));
    MasterParams expected = before;
    expected.hpfFreq = 300;
    EXPECT_EQ(g->params(), expected);
    drag(*g, g->bandPoint(EQBand::highPass), QPointF(plot.left() - 10, plot.bottom()));
    EXPECT_EQ(g->params().hpfFreq, 20);
}

TEST(EQCurveGraphView, QDragWithShiftChangesOnlyTheQAndTheTitleSaysSo) {
    EXPECT_TRUE(EQCurveGraphView().title().endsWith(QStringLiteral("⇧ = Q"))) << EQCurveGraphView().title().toStdString();
    EXPECT_FALSE(EQCurveGraphView().title().contains(QStringLiteral("⌥")));
    // Shift is the gesture; Ctrl and Alt do the same where the window manager lets them through.
    for (Qt::KeyboardModifier modifier : {Qt::ShiftModifier, Qt::ControlModifier, Qt::AltModifier}) {
        SCOPED_TRACE(modifier);
        auto g = graph(shapedChain(), 48000);
        const QRectF plot = g->plotRect();
        const MasterParams before = g->params();

        // A fifth of the height down from the top, and far to the left: Q 0.8·2.7 + 0.3.
        drag(*g, g->bandPoint(EQBand::highMid), QPointF(plot.left() + 10, plot.top() + plot.height() / 5), modifier, 5,
             false);
        EXPECT_NEAR(g->params().b2Q, 2.46, 1e-9);
        MasterParams expected = before;
        expected.b2Q = g->params().b2Q;
        EXPECT_EQ(g->params(), expected);
        EXPECT_EQ(g->readout(), "HAUT-MÉD · Q 2.46");

        // Past the bottom: the smallest Q.
        sendMouse(*g, QEvent::MouseMove, QPointF(plot.center().x(), plot.bottom() + 50), Qt::NoButton, Qt::LeftButton, modifier);
        EXPECT_NEAR(g->params().b2Q, 0.3, 1e-12);
        sendMouse(*g, QEvent::MouseButtonRelease, QPointF(), Qt::LeftButton, Qt::NoButton, modifier);
        EXPECT_EQ(g->readout(), "");

        // A shelf has no Q: the same gesture leaves everything as it was.
        const MasterParams settled = g->params();
        QSignalSpy edits(g.get(), &EQCurveGraphView::paramsEdited);
        drag(*g, g->bandPoint(EQBand::highShelf), QPointF(plot.left() + 20, plot.top() + 20), modifier);
        EXPECT_EQ(g->params(), settled);
        EXPECT_TRUE(edits.isEmpty());
    }
}

// One wheel notch at `at`: positive `notches` away from the user.
bool wheelAt(QWidget& w, QPointF at, int notches) {
    QWheelEvent e(at, w.mapToGlobal(at), QPoint(), QPoint(0, 120 * notches), Qt::NoButton, Qt::NoModifier,
                  Qt::NoScrollPhase, false);
    QApplication::sendEvent(&w, &e);
    return e.isAccepted();
}

TEST(EQCurveGraphView, TheWheelOverAPointChangesItsQOnceTheGraphHasFocus) {
    auto g = graph(shapedChain(), 48000);
    g->show();
    g->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(g.get()));
    QSignalSpy edits(g.get(), &EQCurveGraphView::paramsEdited);
    const MasterParams before = g->params();
    // Without focus the wheel is the scrolling column's, even over a point.
    g->clearFocus();
    ASSERT_FALSE(g->hasFocus());
    EXPECT_FALSE(wheelAt(*g, g->bandPoint(EQBand::highMid), 1));
    EXPECT_EQ(g->params(), before);

    g->setFocus(Qt::MouseFocusReason);
    ASSERT_TRUE(g->hasFocus());
    // Two notches up over the high mid: 2/100 of 0.3 … 3.0 more Q, nothing else.
    EXPECT_TRUE(wheelAt(*g, g->bandPoint(EQBand::highMid), 2));
    MasterParams expected = before;
    expected.b2Q = before.b2Q + 0.054;
    EXPECT_NEAR(g->params().b2Q, expected.b2Q, 1e-9);
    expected.b2Q = g->params().b2Q;
    EXPECT_EQ(g->params(), expected);
    ASSERT_EQ(edits.size(), 1);
    // Down to the end of the range, and no further.
    wheelAt(*g, g->bandPoint(EQBand::lowMid), -200);
    EXPECT_NEAR(g->params().b1Q, 0.3, 1e-12);
    // Away from the points, or over a shelf that has no Q, the wheel is left to the column.
    const MasterParams settled = g->params();
    EXPECT_FALSE(wheelAt(*g, QPointF(g->plotRect().left() + 2, g->plotRect().bottom() - 2), 1));
    EXPECT_FALSE(wheelAt(*g, g->bandPoint(EQBand::lowShelf), 1));
    EXPECT_EQ(g->params(), settled);
}

TEST(EQCurveGraphView, ReadoutNamesTheBandFrequencyAndGain) {
    auto g = graph(shapedChain(), 48000);
    const QRectF plot = g->plotRect();
    drag(*g, g->bandPoint(EQBand::lowShelf), QPointF(plot.left() + g->xForFrequency(250), plot.top() + g->yForGain(2.5)),
         {}, 3, false);
    EXPECT_EQ(g->readout(), "GRAVES · 250 Hz · +2.5 dB");
    sendMouse(*g, QEvent::MouseMove, QPointF(plot.left() + g->xForFrequency(9876), plot.top() + g->yForGain(-1)),
              Qt::NoButton, Qt::LeftButton);
    EXPECT_EQ(g->readout(), "GRAVES · 400 Hz · -1.0 dB");  // the shelf stops at its top frequency
    sendMouse(*g, QEvent::MouseButtonRelease, QPointF(), Qt::LeftButton, Qt::NoButton);

    drag(*g, g->bandPoint(EQBand::highShelf), QPointF(plot.left() + g->xForFrequency(12345), plot.top() + g->yForGain(6)),
         {}, 3, false);
    EXPECT_EQ(g->readout(), "AIGUS · 12.3 kHz · +6.0 dB");
}


// Brightness of the brightest pixel in a column between two heights (logical), 0 … 255; a
// pixel counts only when it carries colour or light above the dark well.
int brightestIn(const QImage& image, double x, double top, double bottom) {
    const double dpr = image.devicePixelRatio();
    int best = 0;
    for (int row = int(top * dpr); row <= int(bottom * dpr); ++row) {
        const QColor c = image.pixelColor(int(std::floor(x * dpr)), row);
        best = std::max({best, c.red(), c.green(), c.blue()});
    }
    return best;
}

TEST(EQCurveGraphView, ABypassedBellIsAGhostOverAFlatGreyLine) {
    MasterParams p;
    p.eqOn = true;
    p.b1Freq = 800, p.b1Gain = 9, p.b1Q = 0.7;
    auto g = graph(p, 48000);
    const QRectF plot = g->plotRect();
    // Beside the band's point, where the bell is still near its top: +8 dB and more.
    const double x = plot.left() + g->xForFrequency(800) + 14;
    ASSERT_GT(g->curveDB(x - plot.left()), 8);
    const double peakTop = plot.top() + g->yForGain(10), peakBottom = plot.top() + g->yForGain(6);
    const double zero = plot.top() + g->yForGain(0);

    const QImage active = snapshot(*g, 1);
    EXPECT_GT(accentLineY(active, x), peakTop);
    EXPECT_LT(accentLineY(active, x), peakBottom);

    p.eqOn = false;
    g->setParams(p);
    EXPECT_TRUE(g->bypassed());
    for (double ratio : {1.0, 2.0}) {
        SCOPED_TRACE(ratio);
        const QImage bypassed = snapshot(*g, ratio);
        keepForReview(bypassed, "eq-curve-bypassed");
        // No accent anywhere along the column, the bell's top dim, the flat line bright grey.
        EXPECT_EQ(accentLineY(bypassed, x), -1);
        EXPECT_LT(brightestIn(bypassed, x, peakTop, peakBottom), brightestIn(active, x, peakTop, peakBottom) / 2);
        const QColor flat = pixelAt(bypassed, QPointF(x, zero));
        EXPECT_GT(flat.green(), 120);
        EXPECT_LT(colourDistance(flat, QColor(flat.green(), flat.green(), flat.green())), 24) << "grey, not a colour";
    }
}

}  // namespace
}  // namespace velmora::test
