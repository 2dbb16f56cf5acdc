// Undo and redo of the window's settings through the Édition menu and its keys, one step per
// gesture, and the norm picker's word for a target moved off the norm.
#include <QPushButton>
#include <QSlider>
#include <QWidgetAction>
#include <QTest>
#include <gtest/gtest.h>

#include "AppTesting.h"
#include "model/ModelTesting.h"
#include "norms/Presets.h"
#include "ui/SSLKnob.h"
#include "ui/app/AppMenus.h"
#include "ui/app/MainWindowFactory.h"
#include "ui/window/Controls.h"
#include "ui/window/NormSection.h"
#include "ui/window/PresetsSection.h"
#include "ui/window/UndoHistory.h"

namespace velmora::test {
namespace {

QString text(std::string_view raw) { return QString::fromUtf8(raw.data(), qsizetype(raw.size())); }

class Undo : public ::testing::Test {
protected:
    void SetUp() override {
        window = createMainWindow(model);
        installMenus(*window, model, [] {});
        window->show();
        window->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
        for (QAction* menu : window->menuBar()->actions())
            if (menu->text() == "É&dition") {
                undo = menu->menu()->actions().value(0);
                redo = menu->menu()->actions().value(1);
            }
        ASSERT_TRUE(undo && redo);
    }

    SSLKnob* knob(const QString& labelOrName) const {
        for (auto* k : window->findChildren<SSLKnob*>())
            if (k->accessibleName() == labelOrName || k->label() == labelOrName) return k;
        return nullptr;
    }

    void keys(QKeyCombination combination) { QTest::keyClick(window.get(), combination.key(), combination.keyboardModifiers()); }

    FixedChoosers choosers;
    Model model{nullptr, &choosers};
    std::unique_ptr<QMainWindow> window;
    QAction *undo = nullptr, *redo = nullptr;
};

TEST_F(Undo, KnobChangeGoesBackAndForthByKeysAndMenu) {
    EXPECT_FALSE(undo->isEnabled());
    EXPECT_FALSE(redo->isEnabled());
    EXPECT_EQ(undo->text(), "Annuler");
    EXPECT_EQ(redo->text(), "Rétablir");

    SSLKnob* threshold = knob("SEUIL");
    ASSERT_NE(threshold, nullptr);
    const double start = model.mp().compThreshold;
    const QString shownAtStart = threshold->valueText();
    threshold->setFocus();
    QTest::keyClick(threshold, Qt::Key_PageUp);
    const double moved = model.mp().compThreshold;
    ASSERT_NE(moved, start);
    const QString shownMoved = threshold->valueText();
    EXPECT_TRUE(undo->isEnabled());
    EXPECT_EQ(undo->text(), "Annuler : Seuil");

    keys(Qt::CTRL | Qt::Key_Z);
    EXPECT_EQ(model.mp().compThreshold, start);
    EXPECT_EQ(threshold->value(), start);
    EXPECT_EQ(threshold->valueText(), shownAtStart);
    EXPECT_FALSE(undo->isEnabled());
    EXPECT_EQ(redo->text(), "Rétablir : Seuil");

    keys(Qt::CTRL | Qt::SHIFT | Qt::Key_Z);
    EXPECT_EQ(model.mp().compThreshold, moved);
    EXPECT_EQ(threshold->valueText(), shownMoved);
    EXPECT_FALSE(redo->isEnabled());

    undo->trigger();
    EXPECT_EQ(threshold->value(), start);
    redo->trigger();
    EXPECT_EQ(threshold->value(), moved);
}

TEST_F(Undo, ADragIsOneStep) {
    SSLKnob* low = knob("GRAVES · GAIN");
    ASSERT_NE(low, nullptr);
    QUndoStack& steps = window::UndoHistory::of(model).stack();
    const auto drag = [&](int pixelsUp) {
        const QPoint centre = low->knobCentre().toPoint();
        QTest::mousePress(low, Qt::LeftButton, {}, centre);
        for (int y = 5; y <= pixelsUp; y += 5) QTest::mouseMove(low, centre - QPoint(0, y));
        QTest::mouseRelease(low, Qt::LeftButton, {}, centre - QPoint(0, pixelsUp));
    };
    drag(40);
    const double first = model.mp().lsGain;
    EXPECT_GT(first, 0.0);
    EXPECT_EQ(steps.count(), 1);
    EXPECT_EQ(undo->text(), "Annuler : Graves · gain");
    drag(20);
    const double second = model.mp().lsGain;
    EXPECT_GT(second, first);
    EXPECT_EQ(steps.count(), 2) << "a new press is a new step";

    undo->trigger();
    EXPECT_EQ(model.mp().lsGain, first);
    EXPECT_EQ(low->value(), first);
    undo->trigger();
    EXPECT_EQ(model.mp().lsGain, 0.0);
    EXPECT_EQ(low->value(), 0.0);
}

TEST_F(Undo, NormAndOutputChoicesComeBack) {
    StudioMenuPicker* norm = pickerNamed(*window, "Norme");
    StudioMenuPicker* depth = pickerNamed(*window, "Profondeur");
    ASSERT_TRUE(norm && depth);
    const QString ebu = text(presetAt(0).label), pad = text(presetAt(1).label);
    ASSERT_TRUE(choose(*norm, pad));
    ASSERT_EQ(model.ceiling(), -3.0);
    ASSERT_TRUE(choose(*depth, text(rawValue(BitDepth::int16))));
    ASSERT_EQ(model.bitDepth(), BitDepth::int16);
    EXPECT_EQ(undo->text(), "Annuler : Profondeur");

    undo->trigger();
    EXPECT_EQ(model.bitDepth(), BitDepth::int24);
    EXPECT_EQ(depth->currentLabel(), text(rawValue(BitDepth::int24)));
    EXPECT_EQ(undo->text(), "Annuler : Norme");
    keys(Qt::CTRL | Qt::Key_Z);
    // The norm comes back with its target and ceiling, as one step.
    EXPECT_EQ(model.presetIndex(), 0);
    EXPECT_EQ(model.target(), -23.0);
    EXPECT_EQ(model.ceiling(), -1.0);
    EXPECT_EQ(norm->currentLabel(), ebu);
    EXPECT_FALSE(undo->isEnabled());

    redo->trigger();
    redo->trigger();
    EXPECT_EQ(model.presetIndex(), 1);
    EXPECT_EQ(model.ceiling(), -3.0);
    EXPECT_EQ(model.bitDepth(), BitDepth::int16);
    EXPECT_EQ(norm->currentLabel(), pad);
}

TEST_F(Undo, TargetOffTheNormIsCustomInThePicker) {
    auto* section = window->findChild<window::NormSection*>();
    ASSERT_NE(section, nullptr);
    QSlider* target = section->targetControl()->slider();
    QSlider* ceiling = section->ceilingControl()->slider();
    StudioMenuPicker* norm = section->normPicker();
    const QString ebu = text(presetAt(0).label);
    ASSERT_EQ(norm->currentLabel(), ebu);

    // -36 LUFS upwards in 0.5 LU steps: -21.5 then -21.0, in one move of the slider.
    target->setValue(29);
    EXPECT_EQ(model.target(), -21.5);
    EXPECT_EQ(norm->currentLabel(), "Personnalisé (base : " + ebu + ")");
    target->setValue(30);
    EXPECT_EQ(model.target(), -21.0);
    EXPECT_EQ(window::UndoHistory::of(model).stack().count(), 1);
    EXPECT_EQ(undo->text(), "Annuler : Cible de sonie");

    undo->trigger();
    EXPECT_EQ(model.target(), -23.0);
    EXPECT_EQ(section->targetControl()->value(), -23.0);
    EXPECT_EQ(norm->currentLabel(), ebu);
    redo->trigger();
    EXPECT_EQ(norm->currentLabel(), "Personnalisé (base : " + ebu + ")");
    target->setValue(26);  // back on the norm's -23
    EXPECT_EQ(norm->currentLabel(), ebu);

    // -9 dBTP upwards in 0.1 dB steps: -2.0.
    ceiling->setValue(70);
    EXPECT_EQ(model.ceiling(), -2.0);
    EXPECT_EQ(norm->currentLabel(), "Personnalisé (base : " + ebu + ")");
}

TEST_F(Undo, PresetLoadIsOneStepOfTheWholeChain) {
    MasterParams voice;
    voice.compOn = true;
    voice.lsGain = 3.0;
    model.setMp(voice);
    model.saveUserPreset("Voix");
    model.setMp({});
    QUndoStack& steps = window::UndoHistory::of(model).stack();
    const int before = steps.count();

    auto* section = window->findChild<window::PresetsSection*>();
    ASSERT_NE(section, nullptr);
    QPushButton* load = nullptr;
    for (QAction* a : section->loadPicker()->menu()->actions())
        if (auto* row = qobject_cast<QWidgetAction*>(a))
            for (auto* b : row->defaultWidget()->findChildren<QPushButton*>())
                if (b->text() == "Voix") load = b;
    ASSERT_NE(load, nullptr);
    load->click();
    EXPECT_EQ(model.mp(), voice);
    EXPECT_EQ(steps.count(), before + 1);
    EXPECT_EQ(undo->text(), "Annuler : Préréglage « Voix »");

    undo->trigger();
    EXPECT_EQ(model.mp(), MasterParams{});
    EXPECT_EQ(knob("GRAVES · GAIN")->value(), 0.0);
}

TEST(UndoStepNames, CaptionsReadAsWords) {
    EXPECT_EQ(window::stepName("GRAVES · GAIN"), "Graves · gain");
    EXPECT_EQ(window::stepName("RAFFINAGE ITÉRATIF (PRÉCISION ±0,5 LU)"), "Raffinage itératif (précision ±0,5 LU)");
    EXPECT_EQ(window::stepName("Seuil de déclenchement"), "Seuil de déclenchement");
}

}  // namespace
}  // namespace velmora::test
