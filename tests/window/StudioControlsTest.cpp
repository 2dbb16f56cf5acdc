// The window as a studio tool: controls that change only when asked (the wheel scrolls the
// column unless a control has focus), values typed into the chain, bypassed stages drawn in
// grey, "Vider" that asks first, and the removed file's readings cleared at once.
#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QScrollArea>
#include <QScrollBar>
#include <QSignalSpy>
#include <QSlider>
#include <QSpontaneKeyEvent>
#include <QTest>
#include <QWheelEvent>
#include <gtest/gtest.h>

#include "WindowTesting.h"
#include "model/Model.h"
#include "ui/MainWindow.h"
#include "ui/SSLKnob.h"
#include "ui/CompCurveGraphView.h"
#include "ui/EQCurveGraphView.h"
#include "ui/LedToggle.h"
#include "ui/StudioPanel.h"
#include "ui/StudioTheme.h"
#include "ui/LoudnessHistoryView.h"
#include "ui/WaveformView.h"
#include "ui/window/ChainSection.h"
#include "ui/window/DiagnosisSection.h"
#include "ui/window/Controls.h"
#include "ui/window/FileListSection.h"
#include "ui/window/HistorySection.h"
#include "ui/window/MeasuresSection.h"
#include "ui/window/NormSection.h"
#include "ui/window/TransportSection.h"

namespace velmora::test {
namespace {

// One notch of a mouse wheel turned towards the user (scrolling down) over the middle of `w`,
// as the window system delivers it: a spontaneous event to the window, which Qt hands to the
// widget under the pointer and then up its parents while they ignore it. (QApplication's
// sendEvent would make it a synthesized event, which Qt never passes on to the parents.)
void wheelDownOver(QWidget* w) {
    QWidget* top = w->window();
    const QPointF spot = QPointF(w->mapTo(top, w->rect().center()));
    QWheelEvent e(spot, top->mapToGlobal(spot), QPoint(), QPoint(0, -120), Qt::NoButton, Qt::NoModifier,
                  Qt::NoScrollPhase, false);
    QSpontaneKeyEvent::setSpontaneous(&e);
    qApp->notify(top->windowHandle(), &e);
}

TEST(StudioControls, TheWheelOverAnUnfocusedKnobOrSliderScrollsTheColumnAndChangesNothing) {
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    MainWindow w(model);
    w.show();
    settle(50);  // the column lays out its content before it can scroll
    QScrollBar* bar = w.settingsColumn()->verticalScrollBar();
    ASSERT_GT(bar->maximum(), 0) << "the column must be taller than the window for this test";

    SSLKnob* threshold = w.chain()->knobNamed("SEUIL");
    ASSERT_TRUE(threshold);
    w.settingsColumn()->ensureWidgetVisible(threshold);
    bar->setValue(std::min(bar->value(), bar->maximum() - 40));
    w.centralWidget()->setFocus();
    ASSERT_FALSE(threshold->hasFocus());
    const MasterParams before = model.mp();
    const double knobBefore = threshold->value();
    int scrolled = bar->value();
    wheelDownOver(threshold);
    EXPECT_DOUBLE_EQ(threshold->value(), knobBefore);
    EXPECT_EQ(model.mp(), before);
    EXPECT_GT(bar->value(), scrolled);

    // A slider of the same column: the column scrolls, the target stays.
    window::LabeledSlider* target = w.norm()->targetControl();
    w.settingsColumn()->ensureWidgetVisible(target);
    bar->setValue(std::min(bar->value(), bar->maximum() - 40));
    const double targetBefore = model.target();
    scrolled = bar->value();
    wheelDownOver(target->slider());
    EXPECT_DOUBLE_EQ(model.target(), targetBefore);
    EXPECT_GT(bar->value(), scrolled);

    // Once clicked, the knob is the wheel's and the column stays put: one notch is 1/100 of the
    // range, downwards.
    w.settingsColumn()->ensureWidgetVisible(threshold);
    QTest::mouseClick(threshold, Qt::LeftButton, Qt::NoModifier, threshold->knobCentre().toPoint());
    ASSERT_TRUE(threshold->hasFocus());
    scrolled = bar->value();
    wheelDownOver(threshold);
    EXPECT_NEAR(threshold->value(), knobBefore - (threshold->high() - threshold->low()) / 100.0, 1e-9);
    EXPECT_NEAR(model.mp().compThreshold, threshold->value(), 1e-9);
    EXPECT_EQ(bar->value(), scrolled);

    // The same for the slider given focus by Tab order (focus without a click).
    w.settingsColumn()->ensureWidgetVisible(target);
    target->slider()->setFocus(Qt::TabFocusReason);
    ASSERT_TRUE(target->slider()->hasFocus());
    wheelDownOver(target->slider());
    EXPECT_NE(model.target(), targetBefore);
}

const QString minus = QString(QChar(0x2212));

window::LabeledSlider* sliderNamed(QWidget* in, const QString& caption) {
    for (auto* s : in->findChildren<window::LabeledSlider*>())
        if (s->slider()->accessibleName() == caption) return s;
    return nullptr;
}

TEST(StudioControls, TypedValuesReachTheChainAsADragWould) {
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    MainWindow w(model);
    w.show();
    QApplication::setActiveWindow(&w);
    settle(50);

    // A knob: Enter opens the field, "3,4" sets 3.4 in the chain, once.
    SSLKnob* bell = w.chain()->knobNamed("BAS-MÉD · GAIN");
    ASSERT_TRUE(bell);
    w.settingsColumn()->ensureWidgetVisible(bell);
    bell->setFocus();
    QSignalSpy changes(&model, &Model::mpChanged);
    QTest::keyClick(bell, Qt::Key_Return);
    ASSERT_TRUE(bell->entryField());
    QTest::keyClicks(bell->entryField(), "3,4");
    QTest::keyClick(bell->entryField(), Qt::Key_Return);
    EXPECT_EQ(model.mp().b1Gain, 3.4);
    EXPECT_EQ(changes.count(), 1);
    EXPECT_EQ(w.chain()->equaliserGraph()->params().b1Gain, 3.4);
    EXPECT_TRUE(bell->toolTip().startsWith("BAS-MÉD · GAIN — +3.4 dB (" + minus + "12 à +12 dB)"));
    EXPECT_EQ(w.chain()->knobNamed("RATIO")->valueText(), "2.0:1");
    EXPECT_EQ(w.chain()->knobNamed("SEUIL")->valueText(), minus + "18.0 dB");

    // A slider of the chain: a right-click opens the field over its reading.
    window::LabeledSlider* trigger = sliderNamed(w.chain(), "Seuil de déclenchement");
    ASSERT_TRUE(trigger);
    w.settingsColumn()->ensureWidgetVisible(trigger);
    QTest::mouseClick(trigger->slider(), Qt::RightButton, {}, trigger->slider()->rect().center());
    ASSERT_TRUE(trigger->entryField());
    QTest::keyClicks(trigger->entryField(), "9");
    QTest::keyClick(trigger->entryField(), Qt::Key_Return);
    EXPECT_EQ(trigger->entryField()->problem(), "Valeur hors plage : 0.5 à 4 dB");
    EXPECT_EQ(model.mp().autoProtectThresholdDB, MasterParams{}.autoProtectThresholdDB);
    trigger->entryField()->selectAll();
    QTest::keyClicks(trigger->entryField(), "2,5 dB");
    QTest::keyClick(trigger->entryField(), Qt::Key_Return);
    EXPECT_EQ(model.mp().autoProtectThresholdDB, 2.5);
    EXPECT_EQ(trigger->readingText(), "2.5 dB");
    EXPECT_TRUE(trigger->toolTip().startsWith("Seuil de déclenchement — 2.5 dB (0.5 à 4 dB)\n"));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);

    // Enter on the focused slider opens it too; Escape changes nothing.
    trigger->slider()->setFocus();
    QTest::keyClick(trigger->slider(), Qt::Key_Return);
    ASSERT_TRUE(trigger->entryField());
    QTest::keyClicks(trigger->entryField(), "1");
    QTest::keyClick(trigger->entryField(), Qt::Key_Escape);
    EXPECT_TRUE(trigger->slider()->hasFocus());
    EXPECT_EQ(model.mp().autoProtectThresholdDB, 2.5);
    EXPECT_EQ(changes.count(), 2);
}

// The brightest channel of the pixel under a logical point of a widget's own image.
int brightnessAt(QWidget* w, QPointF at) {
    const QColor c = w->grab().toImage().pixelColor(at.toPoint());
    return std::max({c.red(), c.green(), c.blue()});
}

TEST(StudioControls, ABypassedStageIsDrawnInGreyControlsAndCurveIncluded) {
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    MainWindow w(model);
    w.show();
    settle(50);
    window::ChainSection* chain = w.chain();
    MasterParams p = model.mp();
    p.eqOn = true, p.hpfOn = true;
    p.b1Gain = 9;
    model.setMp(p);

    SSLKnob* bell = chain->knobNamed("BAS-MÉD · GAIN");
    LedToggle* stage = chain->toggleNamed("5 BANDES — RBJ");
    LedToggle* highPass = chain->toggleNamed("PASSE-HAUT");
    ASSERT_TRUE(bell && stage && highPass);
    const auto eqKnobs = chain->equaliserPanel()->findChildren<SSLKnob*>();
    ASSERT_EQ(eqKnobs.size(), 11);
    for (auto* k : eqKnobs) EXPECT_FALSE(k->isDimmed()) << k->accessibleName().toStdString();
    EXPECT_FALSE(chain->equaliserGraph()->bypassed());
    const QPointF tick = bell->tickMidpoint(0);  // lit: the bell stands at +9 dB
    const int activeTick = brightnessAt(bell, tick);
    EXPECT_GT(activeTick, 150);

    stage->click();
    ASSERT_FALSE(model.mp().eqOn);
    for (auto* k : eqKnobs) EXPECT_TRUE(k->isDimmed()) << k->accessibleName().toStdString();
    EXPECT_TRUE(highPass->isDimmed());
    EXPECT_FALSE(stage->isDimmed()) << "the stage's own switch stays plain, to turn it back on";
    EXPECT_TRUE(chain->equaliserGraph()->bypassed());
    EXPECT_LT(brightnessAt(bell, tick), activeTick / 2);
    for (auto* label : chain->equaliserPanel()->findChildren<QLabel*>())
        EXPECT_EQ(label->palette().color(QPalette::WindowText), theme::textDisabled) << label->text().toStdString();
    EXPECT_EQ(bell->value(), 9) << "dimmed, not reset";

    // The compressor starts bypassed; its switch brings back its colours.
    EXPECT_TRUE(chain->compressorGraph()->bypassed());
    EXPECT_TRUE(chain->knobNamed("SEUIL")->isDimmed());
    w.settingsColumn()->verticalScrollBar()->setValue(chain->y());
    settle(20);
    keepScreenshot(w.grab().toImage(), "chain-bypassed");
    chain->toggleNamed("BUS COMPRESSEUR")->click();
    EXPECT_FALSE(chain->compressorGraph()->bypassed());
    EXPECT_FALSE(chain->knobNamed("SEUIL")->isDimmed());

    stage->click();
    EXPECT_EQ(brightnessAt(bell, tick), activeTick);
}

// Answers the next message box once it is up with its button titled `choice`; what it asked.
std::shared_ptr<QString> answerBox(const QString& choice) {
    auto asked = std::make_shared<QString>();
    QTimer::singleShot(0, [asked, choice] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box) return ADD_FAILURE() << "no message box";
        *asked = box->text();
        for (auto* b : box->buttons())
            if (b->text() == choice) return b->click();
        ADD_FAILURE() << "no button " << choice.toStdString();
        box->reject();
    });
    return asked;
}

// Two analysed files: a loud tone and a quiet one.
class TwoFiles : public ::testing::Test {
protected:
    void SetUp() override {
        writeFloatWav(dir / "loud.wav", sine(4.0, 0.5, 2, 1000.0), 48000);
        writeFloatWav(dir / "quiet.wav", sine(4.0, 0.05, 2, 440.0), 48000);
        window.show();
        model.addFiles({q(dir / "loud.wav"), q(dir / "quiet.wav")});
        ASSERT_TRUE(waitIdle(model));
        settle(20);
    }
    QUuid idOf(const QString& name) const {
        for (const auto& i : model.queue())
            if (i.name == name) return i.id;
        return {};
    }

    ScratchDir dir;
    FixedChoosers choosers;
    Model model{nullptr, &choosers};
    MainWindow window{model};
};

TEST_F(TwoFiles, ViderAsksBeforeTheSessionGoes) {
    QPushButton* clear = window.fileList()->clearButton();
    ASSERT_TRUE(clear->isEnabled());
    auto asked = answerBox("Annuler");
    clear->click();
    EXPECT_EQ(*asked, "Vider la session ?");
    EXPECT_EQ(model.queue().size(), 2u) << "cancelled: nothing removed";

    asked = answerBox("Vider");
    clear->click();
    EXPECT_EQ(*asked, "Vider la session ?");
    EXPECT_TRUE(model.queue().empty());
    EXPECT_FALSE(clear->isEnabled());
}

TEST_F(TwoFiles, RemovingTheSelectedFileClearsItsReadingsAtOnce) {
    model.select(idOf("loud.wav"));
    QCoreApplication::processEvents();
    const std::vector<float> loudPeaks = window.transport()->waveform()->peaks();
    ASSERT_FALSE(loudPeaks.empty());
    ASSERT_FALSE(window.measures()->placeholder()->isVisible());
    const QString loudPeak = window.measures()->truePeakBadge()->value();
    ASSERT_NE(loudPeak, "—");

    window.fileList()->removeButton()->click();
    QCoreApplication::processEvents();
    ASSERT_EQ(model.queue().size(), 1u);
    const auto selected = model.selectedID();
    if (!selected) {
        // Nothing selected: no waveform, no measures, no history, no spectrum.
        EXPECT_TRUE(window.transport()->waveform()->peaks().empty());
        EXPECT_TRUE(window.measures()->placeholder()->isVisible());
        EXPECT_DOUBLE_EQ(window.history()->history()->duration(), 0.0);
        EXPECT_TRUE(window.chain()->equaliserGraph()->spectrum().empty());
    } else {
        // The other file selected: its own readings, none of the removed one's.
        EXPECT_EQ(*selected, idOf("quiet.wav"));
        EXPECT_NE(window.transport()->waveform()->peaks(), loudPeaks);
        EXPECT_NE(window.measures()->truePeakBadge()->value(), loudPeak);
    }

    // The last file removed by the keyboard of the list: the window is empty again.
    model.select(idOf("quiet.wav"));
    QCoreApplication::processEvents();
    ASSERT_FALSE(window.transport()->waveform()->peaks().empty());
    ASSERT_FALSE(window.diagnosis()->normList()->checks().empty());
    QTest::keyClick(window.fileList()->rows(), Qt::Key_Delete);
    QCoreApplication::processEvents();
    EXPECT_TRUE(model.queue().empty());
    EXPECT_EQ(window.diagnosis()->conformityLine()->text(), "Sélectionnez un fichier pour voir les mesures");
    EXPECT_TRUE(window.transport()->waveform()->peaks().empty());
    EXPECT_TRUE(window.measures()->placeholder()->isVisible());
    EXPECT_DOUBLE_EQ(window.history()->history()->duration(), 0.0);
    EXPECT_TRUE(window.chain()->equaliserGraph()->spectrum().empty());
}

}  // namespace
}  // namespace velmora::test
