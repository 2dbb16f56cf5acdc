#include <QAccessible>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

#include "ui/LedToggle.h"
#include "ui/StudioSegmentButton.h"
#include "ui/StudioTheme.h"
#include "ui/WaveformView.h"
#include "UiTesting.h"

namespace velmora::test {
namespace {

TEST(WaveformView, ClicksSeekToTheFractionOfTheWidthClampedToTheFile) {
    WaveformView view;
    view.resize(600, 96);
    view.setPeaks(std::vector<float>(1024, 0.5f));
    QSignalSpy seeks(&view, &WaveformView::seekRequested);

    press(view, QPointF(0, 40));
    sendMouse(view, QEvent::MouseButtonRelease, QPointF(0, 40), Qt::LeftButton, Qt::NoButton);
    press(view, QPointF(650, 40));
    sendMouse(view, QEvent::MouseButtonRelease, QPointF(650, 40), Qt::LeftButton, Qt::NoButton);
    press(view, QPointF(150, 40));
    ASSERT_EQ(seeks.count(), 3);
    EXPECT_EQ(seeks.at(0).at(0).toDouble(), 0.0);
    EXPECT_EQ(seeks.at(1).at(0).toDouble(), 1.0);
    EXPECT_EQ(seeks.at(2).at(0).toDouble(), 0.25);

    // Dragging keeps seeking, left of the view included.
    sendMouse(view, QEvent::MouseMove, QPointF(-30, 40), Qt::NoButton, Qt::LeftButton);
    EXPECT_EQ(seeks.last().at(0).toDouble(), 0.0);
    sendMouse(view, QEvent::MouseButtonRelease, QPointF(-30, 40), Qt::LeftButton, Qt::NoButton);
    // A hover is not a seek.
    sendMouse(view, QEvent::MouseMove, QPointF(300, 40), Qt::NoButton, Qt::NoButton);
    EXPECT_EQ(seeks.count(), 4);
}

TEST(WaveformView, DrawsThePeaksPlayedInTheAccentAndTheRestInGrey) {
    WaveformView view;
    view.resize(600, 96);
    std::vector<float> peaks(1024, 0.8f);
    std::fill(peaks.begin() + 768, peaks.end(), 0.0f);  // the last quarter is silent
    view.setPeaks(peaks);
    view.setProgress(0.3);
    const double mid = view.height() / 2.0, half = mid - 6;
    for (double ratio : {1.0, 2.0}) {
        SCOPED_TRACE(ratio);
        const QImage image = snapshot(view, ratio);
        keepForReview(image, "waveform");
        const QPointF played(0.15 * view.width(), mid - 0.6 * half), ahead(0.5 * view.width(), mid + 0.6 * half);
        EXPECT_LE(colourDistance(pixelAt(image, played), theme::accent), 2);
        // The secondary text colour at 55 % over the well.
        const auto mix = [](int well, int text) { return int(std::lround(0.45 * well + 0.55 * text)); };
        const QColor grey(mix(theme::well.red(), theme::textSecondary.red()), mix(theme::well.green(), theme::textSecondary.green()),
                          mix(theme::well.blue(), theme::textSecondary.blue()));
        EXPECT_LE(colourDistance(pixelAt(image, ahead), grey), 2) << pixelAt(image, ahead).name().toStdString();
        // Beyond the peak's height, and in the silent quarter, the well shows.
        EXPECT_LE(colourDistance(pixelAt(image, QPointF(0.5 * view.width(), mid - 0.9 * half)), theme::well), 2);
        EXPECT_LE(colourDistance(pixelAt(image, QPointF(0.9 * view.width(), mid - 0.3 * half)), theme::well), 2);
    }
}

TEST(LedToggle, ClickFlipsAndReportsItAndScreenReadersReadTheState) {
    LedToggle toggle("PROTECTION AUTO");
    toggle.resize(toggle.sizeHint());
    QSignalSpy clicks(&toggle, &QAbstractButton::clicked);
    QAccessibleInterface* a = QAccessible::queryAccessibleInterface(&toggle);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->role(), QAccessible::CheckBox);
    EXPECT_EQ(a->text(QAccessible::Name), "PROTECTION AUTO");
    EXPECT_EQ(a->text(QAccessible::Value), "désactivé");
    EXPECT_FALSE(a->state().checked);

    QTest::mouseClick(&toggle, Qt::LeftButton, {}, toggle.ledCentre().toPoint());
    EXPECT_TRUE(toggle.isChecked());
    ASSERT_EQ(clicks.count(), 1);
    EXPECT_TRUE(clicks.at(0).at(0).toBool());
    EXPECT_EQ(a->text(QAccessible::Value), "activé");
    EXPECT_TRUE(a->state().checkable);
    EXPECT_TRUE(a->state().checked);

    toggle.setChecked(false);  // shown, not reported as the user's
    EXPECT_EQ(clicks.count(), 1);

    // Pressed through assistive technology like a click.
    a->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    EXPECT_TRUE(toggle.isChecked());
    EXPECT_EQ(clicks.count(), 2);
}

TEST(StudioSegmentButton, ClickPicksItsValueAndItShowsWhetherItIsTheSelection) {
    StudioSegmentButton master("TRANCHE MASTER", 0), conform("CONFORMITÉ SEULE", 1);
    for (auto* b : {&master, &conform}) {
        b->resize(b->sizeHint());
        b->setSelection(0);
    }
    QSignalSpy picks(&conform, &StudioSegmentButton::picked);
    EXPECT_TRUE(master.isActive());
    EXPECT_FALSE(conform.isActive());
    EXPECT_TRUE(QAccessible::queryAccessibleInterface(&master)->state().checked);
    EXPECT_FALSE(QAccessible::queryAccessibleInterface(&conform)->state().checked);

    QTest::mouseClick(&conform, Qt::LeftButton);
    ASSERT_EQ(picks.count(), 1);
    EXPECT_EQ(picks.at(0).at(0).toInt(), 1);
    // The caller owns the selection: nothing changes until it is set.
    EXPECT_FALSE(conform.isActive());
    conform.setSelection(1);
    EXPECT_TRUE(conform.isActive());
}

}  // namespace
}  // namespace velmora::test
