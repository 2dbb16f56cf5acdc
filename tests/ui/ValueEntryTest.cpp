// Knob values as shown and as typed: the step's precision, the field that Enter or a right-click
// opens, what it refuses and why, the tooltip, and the grey of a bypassed stage.
#include <QApplication>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

#include "ui/SSLKnob.h"
#include "ui/StudioTheme.h"
#include "ui/ValueEntry.h"
#include "UiTesting.h"

namespace velmora::test {
namespace {

const QString minus = QString(QChar(0x2212));

std::unique_ptr<SSLKnob> knob(double low, double high, const char* format, const QString& unit) {
    auto k = std::make_unique<SSLKnob>("GAIN", low, high, format, unit, theme::bandLow, 52);
    k->resize(k->sizeHint());
    return k;
}

TEST(KnobValues, ShownAndReadAtThePrecisionOfTheStepTheyMoveBy) {
    auto gain = knob(-12, 12, "%+.0f", "dB");
    EXPECT_DOUBLE_EQ(gain->step(), 0.2);
    for (auto [value, text] : {std::pair{1.4, QString("+1.4 dB")}, {-3.0, minus + "3.0 dB"}, {-0.04, "+0.0 dB"}}) {
        gain->setValue(value);
        EXPECT_EQ(gain->valueText(), text);
    }
    // A drag lands on the grid: 7 points of 150 over 24 dB is 1.12 dB, shown and sent as 1.2.
    gain->setValue(0);
    QSignalSpy edits(gain.get(), &SSLKnob::valueEdited);
    drag(*gain, gain->knobCentre(), gain->knobCentre() - QPointF(0, 7));
    EXPECT_DOUBLE_EQ(edits.last().at(0).toDouble(), 1.2);
    EXPECT_EQ(gain->valueText(), "+1.2 dB");

    // Frequencies from 1 kHz on in kHz, at the step's precision there too; a Q in hundredths.
    auto mid = knob(200, 8000, "%.0f", "Hz");
    mid->setValue(850);
    EXPECT_EQ(mid->valueText(), "850 Hz");
    mid->setValue(2350);
    EXPECT_EQ(mid->valueText(), "2.35 kHz");
    auto q = knob(0.3, 3, "%.2f", "");
    q->setValue(0.72);
    EXPECT_EQ(q->valueText(), "0.72");

    EXPECT_EQ((StepScale{1000, 12000, 100, "Hz", false}.rangeText()), "1 à 12 kHz");
    EXPECT_EQ((StepScale{100, 2000, 10, "Hz", false}.rangeText()), "100 Hz à 2 kHz");
    EXPECT_EQ((StepScale{1, 10, 0.1, ":1", false}.rangeText()), "1:1 à 10:1");
    const StepScale dB{-12, 12, 0.2, "dB", true};
    EXPECT_EQ(dB.parse(minus + "2,5 dB"), -2.5);
    EXPECT_EQ(dB.parse("+.5dB"), 0.5);
    for (const char* bad : {"abc", "3 ms", "3,4,5", ""}) EXPECT_EQ(dB.parse(bad), std::nullopt) << bad;
    EXPECT_EQ((StepScale{1000, 12000, 100, "Hz", false}.parse("2,5 kHz")), 2500);
}

// A knob on its own window, active, with focus: as after a click.
std::unique_ptr<SSLKnob> focusedGain() {
    auto k = knob(-12, 12, "%+.0f", "dB");
    k->setAccessibleName("GRAVES · GAIN");
    k->setValue(0);
    k->show();
    QApplication::setActiveWindow(k.get());
    k->setFocus();
    return k;
}

void closeLater() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

TEST(KnobValues, EnterOrARightClickOpensAFieldThatTakesATypedValueOnce) {
    auto gain = focusedGain();
    ASSERT_TRUE(gain->hasFocus());
    QSignalSpy edits(gain.get(), &SSLKnob::valueEdited);

    QTest::keyClick(gain.get(), Qt::Key_Return);
    ValueEntry* field = gain->entryField();
    ASSERT_TRUE(field);
    EXPECT_TRUE(field->isVisible());
    EXPECT_EQ(field->text(), "0.0");
    QTest::keyClicks(field, "3,4");  // the whole text was selected: typing replaces it
    QTest::keyClick(field, Qt::Key_Return);
    closeLater();
    EXPECT_EQ(gain->value(), 3.4);
    ASSERT_EQ(edits.count(), 1);
    EXPECT_EQ(edits.last().at(0).toDouble(), 3.4);
    EXPECT_FALSE(gain->entryField());
    EXPECT_TRUE(gain->hasFocus()) << "the focus goes back to the knob";

    // A right-click opens it too. Out of range, unreadable: refused, said, nothing changes.
    QTest::mouseClick(gain.get(), Qt::RightButton, {}, gain->knobCentre().toPoint());
    field = gain->entryField();
    ASSERT_TRUE(field);
    EXPECT_EQ(field->text(), "3.4");
    QTest::keyClicks(field, "30");
    QTest::keyClick(field, Qt::Key_Enter);
    keepForReview(snapshot(*gain, 2, 4), "knob-field-refused");
    EXPECT_EQ(field->problem(), "Valeur hors plage : " + minus + "12 à +12 dB");
    EXPECT_EQ(field->toolTip(), field->problem());
    EXPECT_EQ(gain->entryField(), field) << "a refused value leaves the field open";
    field->selectAll();
    QTest::keyClicks(field, "beaucoup");
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_EQ(field->problem(), "Nombre illisible : « beaucoup ». Plage : " + minus + "12 à +12 dB");
    EXPECT_EQ(gain->value(), 3.4);
    EXPECT_EQ(edits.count(), 1);

    // Escape: closed, nothing changed.
    QTest::keyClick(field, Qt::Key_Escape);
    closeLater();
    EXPECT_FALSE(gain->entryField());
    EXPECT_EQ(gain->value(), 3.4);
    EXPECT_EQ(edits.count(), 1);

    // A value off the grid lands on it; the value it already has is no edit.
    QTest::keyClick(gain.get(), Qt::Key_Enter);
    QTest::keyClicks(gain->entryField(), "-1.33");
    QTest::keyClick(gain->entryField(), Qt::Key_Return);
    EXPECT_EQ(gain->value(), -1.4);
    EXPECT_EQ(edits.count(), 2);
    closeLater();
    QTest::keyClick(gain.get(), Qt::Key_Enter);
    gain->entryField()->setText(minus + "1,4 dB");  // as pasted: the keyboard has no such key
    QTest::keyClick(gain->entryField(), Qt::Key_Return);
    EXPECT_EQ(edits.count(), 2);
}

TEST(KnobValues, TheTooltipGivesNameValueRangeAndKeys) {
    auto threshold = std::make_unique<SSLKnob>("SEUIL", -40, 0, "%.0f", "dB", theme::accent, 52);
    threshold->setValue(-18);
    EXPECT_EQ(threshold->toolTip(), "SEUIL — " + minus + "18.0 dB (" + minus +
                                        "40 à 0 dB)\nEntrée ou clic droit : saisir · molette après un clic : régler");
}

// Lit ticks in the knob's red; their brightness, 0 … 255.
int brightness(const QImage& image, QPointF at) {
    const QColor c = pixelAt(image, at);
    return std::max({c.red(), c.green(), c.blue()});
}

TEST(KnobValues, ADimmedKnobTurnsButItsLitTicksAreFaint) {
    auto gain = knob(-12, 12, "%+.0f", "dB");
    gain->setValue(12);
    const QImage active = snapshot(*gain, 1);
    gain->setDimmed(true);
    const QImage dimmed = snapshot(*gain, 1);
    keepForReview(dimmed, "knob-dimmed");
    for (int i : {0, 5, 10}) {
        SCOPED_TRACE(i);
        EXPECT_GT(brightness(active, gain->tickMidpoint(i)), 200);
        EXPECT_LT(brightness(dimmed, gain->tickMidpoint(i)), brightness(active, gain->tickMidpoint(i)) / 2);
    }
    QSignalSpy edits(gain.get(), &SSLKnob::valueEdited);
    drag(*gain, gain->knobCentre(), gain->knobCentre() + QPointF(0, 75));
    EXPECT_DOUBLE_EQ(gain->value(), 0);
    EXPECT_EQ(edits.count(), 5);
}

}  // namespace
}  // namespace velmora::test
