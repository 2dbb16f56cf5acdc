// The window as a studio tool: controls that change only when asked (the wheel scrolls the
// column unless a control has focus), "Vider" that asks first, and the removed file's readings
// cleared at once.
#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QScrollArea>
#include <QScrollBar>
#include <QSlider>
#include <QSpontaneKeyEvent>
#include <QTest>
#include <QWheelEvent>
#include <gtest/gtest.h>

#include "WindowTesting.h"
#include "model/Model.h"
#include "ui/MainWindow.h"
#include "ui/SSLKnob.h"
#include "ui/EQCurveGraphView.h"
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
