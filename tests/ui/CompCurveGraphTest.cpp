#include <QSignalSpy>
#include <gtest/gtest.h>

#include "ui/CompCurveGraphView.h"
#include "UiTesting.h"

namespace velmora::test {
namespace {

using Handle = CompCurveGraphView::Handle;

std::unique_ptr<CompCurveGraphView> graph(double threshold, double ratio, double makeup) {
    auto g = std::make_unique<CompCurveGraphView>();
    g->resize(300, 220);
    g->setThreshold(threshold);
    g->setRatio(ratio);
    g->setMakeup(makeup);
    return g;
}

// Where the pointer holds the top for an output level at 0 dB input.
QPointF topAt(const CompCurveGraphView& g, double outputDB) {
    const QRectF plot = g.plotRect();
    return QPointF(plot.right(), plot.top() - outputDB / 60 * plot.height());
}

TEST(CompCurveGraphView, TopDraggedToOrBelowTheKneeSetsTheSteepestRatio) {
    for (double makeup : {0.0, 6.0}) {
        SCOPED_TRACE(makeup);
        auto g = graph(-18, 2, makeup);
        QSignalSpy ratios(g.get(), &CompCurveGraphView::ratioEdited);
        drag(*g, g->handlePoint(Handle::top), topAt(*g, -30 + makeup));
        EXPECT_EQ(g->ratio(), 10);
        ASSERT_FALSE(ratios.isEmpty());
        EXPECT_EQ(ratios.last().at(0).toDouble(), 10);

        // Level with the knee counts as below it; past the plot's bottom too.
        g->setRatio(2);
        drag(*g, g->handlePoint(Handle::top), topAt(*g, -18 + makeup));
        EXPECT_EQ(g->ratio(), 10);
        g->setRatio(2);
        drag(*g, g->handlePoint(Handle::top), topAt(*g, -90));
        EXPECT_EQ(g->ratio(), 10);
    }
}

TEST(CompCurveGraphView, TopDragSetsTheRatioThatReachesThePointer) {
    auto g = graph(-18, 2, 0);
    drag(*g, g->handlePoint(Handle::top), topAt(*g, -12));  // 18 dB above the knee come out as 6
    EXPECT_NEAR(g->ratio(), 3, 1e-9);
    EXPECT_EQ(g->readout(), "-18.0 dB · 3.0:1");
    drag(*g, g->handlePoint(Handle::top), topAt(*g, 10));  // above unity: no expansion, 1:1
    EXPECT_EQ(g->ratio(), 1);
}

TEST(CompCurveGraphView, DrawsTheStaticCurveWithItsMakeup) {
    auto g = graph(-20, 4, 3);
    const QRectF plot = g->plotRect();
    // Straight through below the threshold, a quarter of the rise above it, 3 dB up throughout.
    const auto expected = [](double in) { return in < -20 ? in + 3 : -20 + (in + 20) / 4 + 3; };
    for (double ratio : {1.0, 2.0}) {
        SCOPED_TRACE(ratio);
        const QImage image = snapshot(*g, ratio);
        keepForReview(image, "transfer-curve");
        for (double in : {-52.0, -40.0, -28.0, -12.0, -6.0}) {
            const double x = plot.left() + (in + 60) / 60 * plot.width();
            EXPECT_NEAR(accentLineY(image, x), plot.top() - expected(in) / 60 * plot.height(), 1.0) << in << " dB in";
        }
    }
}

TEST(CompCurveGraphView, KneeDragSetsTheThresholdWithinItsRange) {
    auto g = graph(-18, 4, 0);
    QSignalSpy thresholds(g.get(), &CompCurveGraphView::thresholdEdited);
    const QRectF plot = g->plotRect();
    drag(*g, g->handlePoint(Handle::knee), QPointF(plot.left() + plot.width() / 2, plot.top()));
    EXPECT_NEAR(g->threshold(), -30, 1e-9);
    EXPECT_EQ(g->ratio(), 4);  // a sideways drag leaves the ratio
    drag(*g, g->handlePoint(Handle::knee), QPointF(plot.left() - 50, plot.center().y()));
    EXPECT_EQ(g->threshold(), -40);
    drag(*g, g->handlePoint(Handle::knee), QPointF(plot.right() + 50, plot.center().y()));
    EXPECT_EQ(g->threshold(), 0);
    ASSERT_FALSE(thresholds.isEmpty());
    EXPECT_EQ(thresholds.last().at(0).toDouble(), 0);
}


TEST(CompCurveGraphView, BypassedItDrawsUnityInGreyAndTheCurveOnlyAsAGhost) {
    auto g = graph(-30, 4, 0);
    const QPointF squeezed = g->pointFor(-10, g->outputFor(-10));  // -25 dB out: on the curve only
    const QPointF unity = g->pointFor(-10, -10);
    const auto strength = [](const QImage& image, QPointF at) {
        int best = 0;
        for (int dy = -1; dy <= 1; ++dy) {
            const QColor c = pixelAt(image, at + QPointF(0, dy));
            best = std::max({best, c.red(), c.green(), c.blue()});
        }
        return best;
    };
    const QImage active = snapshot(*g, 1);
    EXPECT_GT(strength(active, squeezed), 200);

    g->setBypassed(true);
    const QImage bypassed = snapshot(*g, 1);
    keepForReview(bypassed, "comp-curve-bypassed");
    EXPECT_LT(strength(bypassed, squeezed), strength(active, squeezed) / 2);
    const QColor line = pixelAt(bypassed, unity);
    EXPECT_GT(strength(bypassed, unity), 120);
    EXPECT_LT(std::abs(line.red() - line.blue()), 24) << "grey, not the accent";
}

}  // namespace
}  // namespace velmora::test
