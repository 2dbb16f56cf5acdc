#include <QAccessible>
#include <QApplication>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>
#include <gtest/gtest.h>

#include "ui/SSLKnob.h"
#include "ui/StudioTheme.h"
#include "UiTesting.h"

namespace velmora::test {
namespace {

std::unique_ptr<SSLKnob> frequencyKnob(int size = 52) {
    auto knob = std::make_unique<SSLKnob>("FREQ", 20, 300, "%.0f", "Hz", theme::bandLow, size);
    knob->resize(knob->sizeHint());
    return knob;
}

TEST(SSLKnob, HalfTheDragSpanFromTheMinimumReachesTheMiddleWhateverTheSize) {
    for (int size : {42, 52, 90}) {
        SCOPED_TRACE(size);
        auto knob = frequencyKnob(size);
        QSignalSpy edits(knob.get(), &SSLKnob::valueEdited);
        const QPointF start = knob->knobCentre();

        drag(*knob, start, start - QPointF(0, 75), {}, 5, false);
        EXPECT_DOUBLE_EQ(knob->value(), 160);
        ASSERT_FALSE(edits.isEmpty());
        EXPECT_DOUBLE_EQ(edits.last().at(0).toDouble(), 160);

        // Still pressed: on up past the range, then down past it, measured from the press.
        sendMouse(*knob, QEvent::MouseMove, start - QPointF(0, 400), Qt::NoButton, Qt::LeftButton);
        EXPECT_DOUBLE_EQ(knob->value(), 300);
        sendMouse(*knob, QEvent::MouseMove, start + QPointF(0, 400), Qt::NoButton, Qt::LeftButton);
        EXPECT_DOUBLE_EQ(knob->value(), 20);
        sendMouse(*knob, QEvent::MouseButtonRelease, start, Qt::LeftButton, Qt::NoButton);

        // A new drag starts from where the last one left the value.
        knob->setValue(160);
        drag(*knob, start, start + QPointF(0, 30));
        EXPECT_DOUBLE_EQ(knob->value(), 160 - 280 * 30.0 / 150);
    }
}

// Lit ticks take the knob's colour (a red here); unlit ones are white at low opacity, grey on
// the dark face.
bool litInImage(const QImage& image, QPointF at) {
    const QColor c = pixelAt(image, at);
    return c.red() - c.green() > 50;
}
bool greyInImage(const QImage& image, QPointF at) {
    const QColor c = pixelAt(image, at);
    return std::abs(c.red() - c.green()) < 16 && std::abs(c.green() - c.blue()) < 16;
}

TEST(SSLKnob, LightsTickZeroAloneAtTheMinimumAndAllElevenAtTheMaximum) {
    auto knob = frequencyKnob();
    for (double ratio : {1.0, 2.0}) {
        SCOPED_TRACE(ratio);
        knob->setValue(20);
        QImage image = snapshot(*knob, ratio);
        keepForReview(image, "knob-minimum");
        EXPECT_TRUE(litInImage(image, knob->tickMidpoint(0)));
        for (int i = 1; i < SSLKnob::tickCount; ++i) EXPECT_TRUE(greyInImage(image, knob->tickMidpoint(i))) << "tick " << i;

        knob->setValue(300);
        image = snapshot(*knob, ratio);
        keepForReview(image, "knob-maximum");
        for (int i = 0; i < SSLKnob::tickCount; ++i) EXPECT_TRUE(litInImage(image, knob->tickMidpoint(i))) << "tick " << i;

        // The middle points straight up at tick 5: lit, and tick 6 not.
        knob->setValue(160);
        image = snapshot(*knob, ratio);
        for (int i = 0; i < SSLKnob::tickCount; ++i)
            EXPECT_EQ(litInImage(image, knob->tickMidpoint(i)), i <= 5) << "tick " << i;
    }
}

void wheel(QWidget& w, int angleDeltaY) {
    const QPointF at(w.width() / 2.0, w.height() / 2.0);
    QWheelEvent event(at, w.mapToGlobal(at), QPoint(), QPoint(0, angleDeltaY), Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(&w, &event);
}

TEST(SSLKnob, FocusedKnobFollowsArrowsPagesWheelAndDoubleClickResets) {
    auto knob = std::make_unique<SSLKnob>("SEUIL", -40, 0, "%.0f", "dB", theme::accent, 52);
    knob->resize(knob->sizeHint());
    knob->setDefaultValue(-18);
    knob->setValue(-20);
    knob->show();
    QApplication::setActiveWindow(knob.get());
    knob->setFocus();
    ASSERT_TRUE(knob->hasFocus());
    QSignalSpy edits(knob.get(), &SSLKnob::valueEdited);

    QTest::keyClick(knob.get(), Qt::Key_Up);  // a hundredth of 40 dB
    EXPECT_NEAR(knob->value(), -19.6, 1e-12);
    QTest::keyClick(knob.get(), Qt::Key_Left);
    EXPECT_NEAR(knob->value(), -20, 1e-12);
    QTest::keyClick(knob.get(), Qt::Key_PageDown);  // a tenth
    EXPECT_NEAR(knob->value(), -24, 1e-12);
    QTest::keyClick(knob.get(), Qt::Key_PageUp);
    QTest::keyClick(knob.get(), Qt::Key_Right);
    EXPECT_NEAR(knob->value(), -19.6, 1e-12);
    QTest::keyClick(knob.get(), Qt::Key_End);
    EXPECT_EQ(knob->value(), 0);
    QTest::keyClick(knob.get(), Qt::Key_PageUp);  // already at the top: nothing to report
    const auto editsAtTop = edits.count();
    EXPECT_EQ(knob->value(), 0);

    wheel(*knob, -120);  // one notch down
    EXPECT_NEAR(knob->value(), -0.4, 1e-12);
    wheel(*knob, -60);  // half a notch from a fine wheel
    EXPECT_NEAR(knob->value(), -0.6, 1e-12);
    wheel(*knob, 3 * 120);
    EXPECT_EQ(knob->value(), 0);
    // A touchpad's eighths of a notch (0.05 dB each on a 0.2 dB grid) add up to steps.
    for (int i = 0; i < 8; ++i) wheel(*knob, -15);
    EXPECT_NEAR(knob->value(), -0.4, 1e-12);

    QTest::mouseDClick(knob.get(), Qt::LeftButton, {}, knob->knobCentre().toPoint());
    EXPECT_EQ(knob->value(), -18);
    EXPECT_EQ(edits.last().at(0).toDouble(), -18);
    EXPECT_EQ(edits.count(), editsAtTop + 6);

    // Showing a value is not an edit.
    knob->setValue(-30);
    EXPECT_EQ(edits.count(), editsAtTop + 6);
}

TEST(SSLKnob, ScreenReadersGetItsNameValueAndRange) {
    auto knob = std::make_unique<SSLKnob>("GAIN", -12, 12, "%+.0f", "dB", theme::accent, 52);
    knob->setValue(3);
    QAccessibleInterface* a = QAccessible::queryAccessibleInterface(knob.get());
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->role(), QAccessible::Dial);
    EXPECT_EQ(a->text(QAccessible::Name), "GAIN");
    EXPECT_EQ(a->text(QAccessible::Value), "+3.0 dB");
    QAccessibleValueInterface* value = a->valueInterface();
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(value->currentValue().toDouble(), 3);
    EXPECT_EQ(value->minimumValue().toDouble(), -12);
    EXPECT_EQ(value->maximumValue().toDouble(), 12);

    QSignalSpy edits(knob.get(), &SSLKnob::valueEdited);
    value->setCurrentValue(40.0);  // set by assistive technology: clamped and reported like any edit
    EXPECT_EQ(knob->value(), 12);
    ASSERT_EQ(edits.count(), 1);
    EXPECT_EQ(a->text(QAccessible::Value), "+12.0 dB");
}

}  // namespace
}  // namespace velmora::test
