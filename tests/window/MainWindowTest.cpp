// The real window over the real model: files dropped and analysed, the measures of the selected
// file, the process modes, a locked ceiling, the batch export, the space bar, and listening on a
// private JACK server (plain playback to its system output, live mastering to a probe). Each
// state worth seeing is kept as a PNG beside the build.
#include <QAbstractButton>
#include <QApplication>
#include <QMenuBar>
#include <QRegularExpression>
#include <fstream>
#include <numeric>
#include <QDragEnterEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QSlider>
#include <QSettings>
#include <QSplitter>
#include <QTest>
#include <QWidgetAction>
#include <gtest/gtest.h>

#include "WindowOnJack.h"
#include "model/Model.h"
#include "ui/AnalogVUMeter.h"
#include "ui/BigMeter.h"
#include "ui/CompCurveGraphView.h"
#include "ui/EQCurveGraphView.h"
#include "ui/LedToggle.h"
#include "ui/MainWindow.h"
#include "ui/SSLKnob.h"
#include "ui/StudioMenuPicker.h"
#include "ui/StudioPanel.h"
#include "ui/StudioPrimaryButton.h"
#include "ui/StudioSegmentButton.h"
#include "ui/VerticalMeter.h"
#include "ui/WaveformView.h"
#include "ui/window/ABSwitch.h"
#include "ui/window/ActionBar.h"
#include "ui/window/ChainSection.h"
#include "ui/window/Controls.h"
#include "ui/window/HeaderSection.h"
#include "ui/window/DiagnosisSection.h"
#include "ui/window/FileListSection.h"
#include "ui/window/MeasuresSection.h"
#include "ui/window/MultiMasterSection.h"
#include "ui/window/NormSection.h"
#include "ui/window/OutputSection.h"
#include "ui/window/PresetsSection.h"
#include "ui/window/TransportSection.h"
#include "ui/window/WindowText.h"

namespace velmora::test {
namespace {

namespace fs = std::filesystem;
using window::oneDecimal;

// Drops `paths` on `target` as a file manager would: enter, move, drop.
void dropOn(QWidget& target, const QStringList& paths) {
    const auto mime = uriList(paths);
    const QPoint at = target.rect().center();
    QDragEnterEvent enter(at, Qt::CopyAction, mime.get(), Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&target, &enter);
    QDragMoveEvent move(at, Qt::CopyAction, mime.get(), Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&target, &move);
    QDropEvent drop(QPointF(at), Qt::CopyAction, mime.get(), Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&target, &drop);
}

void choose(StudioMenuPicker* picker, const QVariant& value) {
    for (QAction* a : picker->menu()->actions())
        if (a->data() == value) return a->trigger();
    ADD_FAILURE() << "no such choice";
}

QImage grabWindow(MainWindow& w) {
    QCoreApplication::processEvents();
    return w.grab().toImage();
}

const FileItem& itemNamed(const Model& model, const QString& name) {
    for (const auto& i : model.queue())
        if (i.name == name) return i;
    throw std::runtime_error("no such item");
}

TEST(MainWindow, WithNoOutputAtAllTheTransportSaysSoAndPlayIsDisabled) {
    ScratchDir dir;
    // No JACK server, and an ALSA configuration without a single PCM.
    std::ofstream(dir / "asound.conf") << "\n";
    ScopedEnv alsa("ALSA_CONFIG_PATH", (dir / "asound.conf").string());
    ScopedEnv noJack("JACK_DEFAULT_SERVER", "velmora-test-no-such-server");
    writeFloatWav(dir / "tone.wav", sine(1.0, 0.25), 48000);
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    MainWindow w(model);
    w.show();
    model.addFiles({QString::fromStdString((dir / "tone.wav").string())});
    ASSERT_TRUE(waitIdle(model));
    QCoreApplication::processEvents();
    EXPECT_EQ(w.transport()->playingLabel()->text(), "Aucune sortie audio");
    EXPECT_FALSE(w.transport()->playButton()->isEnabled());
    // Moving the playhead still works: there is a file to move in.
    EXPECT_TRUE(w.transport()->toEndButton()->isEnabled());
}

TEST(MainWindow, EmptyWindowShowsTheDropZoneAndWhatToDoFirst) {
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    MainWindow w(model);
    w.show();
    EXPECT_EQ(w.windowTitle(), "Velmora");
    EXPECT_EQ(w.size(), QSize(1600, 1000));
    EXPECT_EQ(w.minimumSize(), QSize(1024, 640));
    EXPECT_EQ(w.fileList()->panel()->title(), "Session (0 fichier)");
    EXPECT_TRUE(w.fileList()->dropZone()->isVisible());
    EXPECT_FALSE(w.fileList()->rows()->isVisible());
    EXPECT_TRUE(w.measures()->placeholder()->isVisible());
    EXPECT_EQ(w.measures()->placeholder()->text(), "Sélectionnez un fichier pour voir les mesures");
    // Only the drop zone and the settings are of use: the actions wait for files.
    EXPECT_FALSE(w.actions()->analyseButton()->isEnabled());
    EXPECT_FALSE(w.actions()->exportButton()->isEnabled());
    EXPECT_FALSE(w.actions()->saveAsButton()->isEnabled());
    EXPECT_FALSE(w.transport()->playButton()->isEnabled());
    EXPECT_TRUE(w.norm()->normPicker()->isEnabled());
    EXPECT_EQ(w.actions()->exportButton()->text(), "EXPORTER");
    EXPECT_EQ(w.transport()->clock()->text(), "00:00.0");
    EXPECT_EQ(w.transport()->liveSwitch()->text(), "READY");
    // The menu bar stays the shell's: the window puts nothing in it.
    EXPECT_TRUE(w.menuBar()->actions().isEmpty());

    // A drag hovering the window lights the drop zone.
    ScratchDir dir;
    const auto mime = uriList({q(dir / "a.wav")});
    QDragEnterEvent enter(QPoint(400, 400), Qt::CopyAction, mime.get(), Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&w, &enter);
    EXPECT_TRUE(w.fileList()->dropZone()->highlighted());
    QDragLeaveEvent leave;
    QCoreApplication::sendEvent(&w, &leave);
    EXPECT_FALSE(w.fileList()->dropZone()->highlighted());
    keepScreenshot(grabWindow(w), "1-empty");
}

TEST(MainWindow, SplitterPositionsAreSavedAndRestored) {
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    ScratchDir dir;
    QSettings settings(q(dir / "window.ini"), QSettings::IniFormat);
    int total = 0;
    {
        MainWindow w(model);
        w.show();
        QCoreApplication::processEvents();
        // Positions that fill the splitter as it is, so that it keeps them as given.
        const QList<int> now = w.columns()->sizes();
        total = std::accumulate(now.begin(), now.end(), 0);
        w.columns()->setSizes({340, total - 340 - 540, 540});
        w.saveLayout(settings);
    }
    EXPECT_TRUE(settings.contains("Velmora_window/columns"));
    MainWindow again(model);
    again.show();
    QCoreApplication::processEvents();
    again.restoreLayout(settings);
    EXPECT_EQ(again.columns()->sizes(), QList<int>({340, total - 340 - 540, 540}));
}

TEST(MainWindow, HelpButtonOpensTheGuide) {
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    MainWindow w(model);
    w.show();
    w.header()->helpButton()->click();
    ASSERT_TRUE(w.header()->guide());
    EXPECT_TRUE(w.header()->guide()->isVisible());
    const auto labels = w.header()->guide()->findChildren<QLabel*>();
    ASSERT_FALSE(labels.isEmpty());
    EXPECT_TRUE(labels.front()->text().contains("Déposez vos fichiers"));
    keepScreenshot(w.header()->guide()->grab().toImage(), "guide");
    w.header()->guide()->close();
}

TEST(MainWindow, TheAKeyFlipsTheABSwitchButTypesInTheFields) {
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    MainWindow w(model);
    w.show();
    QApplication::setActiveWindow(&w);
    QCoreApplication::processEvents();
    window::ABSwitch* ab = w.transport()->abSwitch();
    EXPECT_EQ(ab->accessibleName(), "Comparaison A/B");
    EXPECT_EQ(ab->toolTip(), "A : source, à la sonie du traitement · B : traité (touche A)");
    ASSERT_TRUE(ab->sourceHeard());
    EXPECT_EQ(ab->text(), "A");

    w.fileList()->rows()->setFocus();
    QTest::keyClick(w.fileList()->rows(), Qt::Key_A);
    EXPECT_FALSE(model.abSourceHeard());
    EXPECT_EQ(ab->text(), "B");
    EXPECT_EQ(ab->accessibleDescription(), "B : traité entendu");
    EXPECT_EQ(model.globalStatus(), "A/B : B (traité) à la prochaine écoute");
    // Ctrl+A belongs to whoever selects all.
    QTest::keyClick(w.fileList()->rows(), Qt::Key_A, Qt::ControlModifier);
    EXPECT_FALSE(model.abSourceHeard());

    // In a text field the letter is a letter, whatever its case.
    w.sideTabs()->setTab(window::PresetTab::presets);
    QLineEdit* field = w.sideTabs()->presetNameField();
    field->setFocus();
    QTest::keyClicks(field, "aA");
    EXPECT_EQ(field->text(), "aA");
    EXPECT_FALSE(model.abSourceHeard());
    EXPECT_EQ(ab->text(), "B");

    // A click on the switch flips it as the key does.
    ab->click();
    EXPECT_TRUE(model.abSourceHeard());
    EXPECT_EQ(ab->text(), "A");
    EXPECT_EQ(model.globalStatus(), "A/B : A (source) à la prochaine écoute");
}

class WindowSession : public WindowOnJack {
protected:
    void SetUp() override {
        WindowOnJack::SetUp();
        session = makeSession(dir);
    }
    // Drops the three files on the measures panel (any place of the window takes them) and
    // waits until all are analysed.
    void dropSession() {
        dropOn(*window->measures(), session.paths());
        ASSERT_TRUE(waitIdle(*model));
        settle(50);
    }

    ScratchDir dir;
    Session session;
};

TEST_F(WindowSession, ThreeDroppedFilesAreAnalysedAndTheMeasuresShowTheSelectedOne) {
    MainWindow& w = *window;
    dropOn(*w.measures(), session.paths());
    // While the analysis runs the list says so, with a bar, and the actions wait.
    EXPECT_TRUE(model->busy());
    EXPECT_FALSE(w.fileList()->progressLabel()->isHidden());
    EXPECT_TRUE(w.fileList()->progressLabel()->text().startsWith("Analyse LUFS 0/3"))
        << w.fileList()->progressLabel()->text().toStdString();
    EXPECT_FALSE(w.actions()->exportButton()->isEnabled());
    EXPECT_EQ(w.actions()->exportButton()->text(), "TRAITEMENT EN COURS…");
    ASSERT_TRUE(waitIdle(*model));
    settle(50);

    EXPECT_EQ(w.fileList()->panel()->title(), "Session (3 fichiers)");
    EXPECT_TRUE(w.fileList()->progressLabel()->isHidden());
    ASSERT_EQ(model->queue().size(), 3u);
    for (const auto& item : model->queue()) EXPECT_EQ(item.status, ItemStatus::ready) << item.info.toStdString();
    EXPECT_TRUE(itemNamed(*model, "Reportage.mov").info.startsWith("vidéo · 0:16"));
    EXPECT_EQ(w.actions()->exportButton()->text(), "EXPORTER");
    EXPECT_TRUE(w.actions()->exportButton()->isEnabled());

    // The first file is selected; a click on the third row selects it.
    for (int row : {0, 2, 1}) {
        const QRect r = w.fileList()->rows()->rowRect(row);
        QTest::mouseClick(w.fileList()->rows()->viewport(), Qt::LeftButton, {}, r.center());
        const FileItem* item = model->selectedItem();
        ASSERT_TRUE(item);
        ASSERT_EQ(item->id, model->queue()[std::size_t(row)].id);
        const LoudnessResult& m = *item->measured;
        auto* measures = w.measures();
        EXPECT_FALSE(measures->placeholder()->isVisible());
        EXPECT_DOUBLE_EQ(measures->integratedMeter()->value(), m.integratedLUFS);
        EXPECT_DOUBLE_EQ(measures->shortTermMeter()->value(), m.shortTermMax);
        EXPECT_EQ(measures->momentaryMaxBadge()->value(), oneDecimal(m.momentaryMax));
        EXPECT_EQ(measures->momentaryMaxBadge()->unit(), "LUFS");
        EXPECT_EQ(measures->shortTermMaxBadge()->value(), oneDecimal(m.shortTermMax));
        EXPECT_EQ(measures->truePeakBadge()->value(), oneDecimal(m.truePeakDB));
        EXPECT_EQ(measures->truePeakBadge()->unit(), "dBTP");
        EXPECT_EQ(measures->samplePeakBadge()->value(), oneDecimal(m.samplePeakDB));
        EXPECT_EQ(measures->rangeBadge()->value(), oneDecimal(*m.loudnessRange));
        EXPECT_EQ(measures->targetBadge()->value(), "-23.0");
        EXPECT_EQ(measures->ceilingBadge()->value(), "-1.0");
        // One decimal, a decimal point: "-31.4".
        for (auto* badge : {measures->momentaryMaxBadge(), measures->shortTermMaxBadge(), measures->truePeakBadge()})
            EXPECT_TRUE(QRegularExpression("^-?\\d+\\.\\d$").match(badge->value()).hasMatch()) << badge->value().toStdString();
        EXPECT_DOUBLE_EQ(measures->loudnessNeedle()->value(), m.integratedLUFS);
        EXPECT_DOUBLE_EQ(measures->peakNeedle()->value(), m.truePeakDB);
        EXPECT_EQ(w.transport()->waveform()->peaks(), item->waveformPeaks);
        const auto& checks = item->multiNormDiagnosis;
        EXPECT_EQ(w.diagnosis()->conformityLine()->text(),
                  QStringLiteral("Le fichier sans aucune retouche : %1 normes mondiales déjà respectées sur 21")
                      .arg(conformCount(checks)));
        ASSERT_EQ(w.diagnosis()->normList()->checks().size(), 21u);
        EXPECT_TRUE(w.diagnosis()->normList()->lineText(0).contains(
            window::signedOneDecimal(m.integratedLUFS + 23.0) + " LU"));
    }
    keepScreenshot(grabWindow(w), "2-three-files-analysed");

    // Keyboard: Down selects the next row.
    w.fileList()->rows()->setFocus();
    QTest::keyClick(w.fileList()->rows(), Qt::Key_Down);
    EXPECT_EQ(*model->selectedID(), model->queue()[2].id);
}

TEST_F(WindowSession, FoldersDroppedAreSearchedForAudio) {
    fs::create_directories(dir / "folder" / "deeper");
    fs::copy_file(session.wav, dir / "folder" / "deeper" / "copy.wav");
    std::ofstream(dir / "folder" / "notes.txt") << "not audio";
    dropOn(*window, {q(dir / "folder")});
    ASSERT_TRUE(waitIdle(*model));
    ASSERT_EQ(model->queue().size(), 1u);
    EXPECT_EQ(model->queue()[0].name, "copy.wav");
}

TEST_F(WindowSession, ConformityHidesTheChainAndMasterBringsItBackUnchanged) {
    MainWindow& w = *window;
    dropSession();
    auto* chain = w.chain();
    EXPECT_TRUE(chain->isVisible());
    for (auto* panel : {chain->equaliserPanel(), chain->compressorPanel(), chain->dynamicsPanel(), chain->tonalPanel(),
                        chain->stereoPanel()})
        EXPECT_TRUE(panel->isVisible());

    // Settings made with the controls: a knob by keyboard, a switch by click, a graph by drag.
    SSLKnob* lowGain = chain->knobNamed("GRAVES · GAIN");
    ASSERT_TRUE(lowGain);
    lowGain->setFocus();
    for (int i = 0; i < 10; ++i) QTest::keyClick(lowGain, Qt::Key_Up);  // 1/100 of 24 dB each, on the 0.2 dB grid
    EXPECT_NEAR(model->mp().lsGain, 2.0, 1e-9);
    chain->toggleNamed("5 BANDES — RBJ")->click();
    EXPECT_TRUE(model->mp().eqOn);
    chain->toggleNamed("BUS COMPRESSEUR")->click();
    SSLKnob* threshold = chain->knobNamed("SEUIL");
    ASSERT_TRUE(threshold);
    threshold->setFocus();
    QTest::keyClick(threshold, Qt::Key_PageDown);
    EXPECT_NEAR(model->mp().compThreshold, -22, 1e-9);
    EXPECT_DOUBLE_EQ(chain->compressorGraph()->threshold(), -22);
    EXPECT_DOUBLE_EQ(chain->equaliserGraph()->params().lsGain, model->mp().lsGain);
    const MasterParams before = model->mp();

    w.norm()->conformButton()->click();
    EXPECT_EQ(model->mode(), ProcessMode::conform);
    EXPECT_FALSE(chain->isVisible());
    EXPECT_TRUE(w.norm()->conformityText()->isVisible());
    EXPECT_EQ(w.norm()->conformityText()->text(),
              "Mise aux normes sans toucher au son : gain vers la cible + limiteur True Peak. Aucun EQ ni compression.");
    EXPECT_EQ(w.actions()->exportButton()->text(), "CONFORMER");
    keepScreenshot(grabWindow(w), "conformity-mode");

    w.norm()->masterButton()->click();
    EXPECT_EQ(model->mode(), ProcessMode::master);
    EXPECT_TRUE(chain->isVisible());
    EXPECT_FALSE(w.norm()->conformityText()->isVisible());
    EXPECT_EQ(model->mp(), before);
    EXPECT_DOUBLE_EQ(lowGain->value(), before.lsGain);
    EXPECT_DOUBLE_EQ(threshold->value(), before.compThreshold);
    EXPECT_TRUE(chain->toggleNamed("5 BANDES — RBJ")->isChecked());
    EXPECT_EQ(w.actions()->exportButton()->text(), "EXPORTER");

    // The master mode with a chain at work, scrolled to its panels.
    MasterParams shaped = model->mp();
    shaped.hpfOn = true;
    shaped.hpfFreq = 60;
    shaped.b1Gain = -3;
    shaped.b1Freq = 350;
    shaped.b2Gain = 2;
    shaped.hsGain = 3;
    shaped.compRatio = 3;
    shaped.teqOn = true;
    shaped.tLsGain = 1.5;
    shaped.msOn = true;
    shaped.sideGain = 2;
    model->setMp(shaped);
    EXPECT_DOUBLE_EQ(chain->knobNamed("HAUT-MÉD · GAIN")->value(), 2);
    settle(50);  // the column lays out its content before it can scroll to it
    w.settingsColumn()->verticalScrollBar()->setValue(chain->y());
    keepScreenshot(grabWindow(w), "3-master-mode-chain");
    w.settingsColumn()->verticalScrollBar()->setValue(chain->y() + chain->compressorPanel()->y());
    keepScreenshot(grabWindow(w), "3b-master-mode-chain-lower");
    w.multiMaster()->disclosure()->click();
    EXPECT_TRUE(model->showMultiMaster());
    settle(50);
    w.settingsColumn()->verticalScrollBar()->setValue(w.settingsColumn()->verticalScrollBar()->maximum());
    keepScreenshot(grabWindow(w), "3c-output-and-multi-master");
    QCoreApplication::processEvents();
    keepScreenshot(w.settingsColumn()->widget()->grab().toImage(), "right-column-whole");
}

TEST_F(WindowSession, DialogueModeShowsTheDialogueBesideTheProgramme) {
    const std::string speech = "/usr/share/pocketsphinx/test/data/librivox/sense_and_sensibility_01_austen_64kb-0920.wav";
    const std::string music = "/usr/share/games/wesnoth/1.16/data/core/music/elvish-theme.ogg";
    if (!fs::exists(speech) || !fs::exists(music)) GTEST_SKIP() << "run scripts/setup-deps";
    MainWindow& w = *window;
    choose(w.norm()->normPicker(), 3);  // CALM Act: dialogue gating
    dropOn(*w.measures(), {QString::fromStdString(speech), QString::fromStdString(music)});
    ASSERT_TRUE(waitIdle(*model, 120));
    settle(50);
    ASSERT_EQ(model->queue().size(), 2u);
    w.sideTabs()->setTab(window::PresetTab::utilitaires);

    // Read speech: its dialogue loudness, the programme's beside it, and the share of speech.
    model->select(model->queue()[0].id);
    settle(20);
    const FileItem& spoken = *model->selectedItem();
    ASSERT_TRUE(spoken.measured && spoken.measured->programmeLUFS);
    EXPECT_EQ(spoken.status, ItemStatus::ready);
    EXPECT_EQ(w.measures()->integratedMeter()->title(), "DIALOGUES");
    const QStringList lines = w.measures()->warnings();
    EXPECT_TRUE(lines.contains("Sonie programme : " + oneDecimal(*spoken.measured->programmeLUFS) + " LKFS"))
        << lines.join('|').toStdString();
    EXPECT_TRUE(lines.filter(QRegularExpression("^Part de dialogue : \\d+ %$")).size() == 1)
        << lines.join('|').toStdString();
    EXPECT_TRUE(w.sideTabs()->padLines().filter("Excursion des dialogues").size() == 1);
    EXPECT_TRUE(w.sideTabs()->padNote()->text().contains("est contrôlée"));

    // Music alone: no dialogue, said so, the programme loudness still shown.
    model->select(model->queue()[1].id);
    settle(20);
    const FileItem& instrumental = *model->selectedItem();
    EXPECT_EQ(instrumental.status, ItemStatus::unmeasurable);
    EXPECT_EQ(instrumental.info, "Aucun dialogue détecté");
    const QStringList musicLines = w.measures()->warnings();
    EXPECT_TRUE(musicLines.contains("Aucun dialogue détecté")) << musicLines.join('|').toStdString();
    EXPECT_TRUE(musicLines.contains("Part de dialogue : 0 %")) << musicLines.join('|').toStdString();
    EXPECT_TRUE(w.sideTabs()->padLines().filter("Excursion des dialogues").isEmpty());
    EXPECT_TRUE(w.sideTabs()->padNote()->text().contains("demande une détection de dialogue dédiée"));
}

TEST_F(WindowSession, ANormThatLocksTheCeilingDisablesItsControl) {
    MainWindow& w = *window;
    auto* norm = w.norm();
    EXPECT_TRUE(norm->ceilingControl()->isEnabled());
    EXPECT_FALSE(norm->lockLine()->isVisible());
    norm->ceilingControl()->slider()->setValue(norm->ceilingControl()->slider()->value() - 5);  // as a drag does
    EXPECT_DOUBLE_EQ(model->ceiling(), -1.5);

    choose(norm->normPicker(), 1);  // PAD TV France: -23 LUFS, -3 dBTP imposed
    EXPECT_EQ(model->presetIndex(), 1);
    EXPECT_EQ(norm->normPicker()->currentLabel(), "-23 LUFS · PAD TV France (CST RT-040)");
    EXPECT_DOUBLE_EQ(model->ceiling(), -3.0);
    EXPECT_FALSE(norm->ceilingControl()->isEnabled());
    EXPECT_TRUE(norm->lockLine()->isVisible());
    EXPECT_EQ(norm->lockText()->text(), "Plafond verrouillé par la norme du preset (-3.0 dBTP).");
    EXPECT_EQ(norm->ceilingControl()->readingText(), "-3.0 dBTP");
    // Edits cannot reach the model while it is locked.
    norm->ceilingControl()->slider()->setValue(0);
    EXPECT_DOUBLE_EQ(model->ceiling(), -3.0);

    choose(norm->normPicker(), 3);  // CALM Act: LKFS and dialogue gating
    EXPECT_EQ(w.measures()->targetBadge()->value(), "-24.0");
    EXPECT_EQ(w.measures()->targetBadge()->unit(), "LKFS");
    EXPECT_EQ(w.output()->gatingPicker()->currentLabel(), "Auto · suit le preset (Dialogues)");
    EXPECT_TRUE(w.output()->dialogueNote()->isVisible());

    choose(norm->normPicker(), 14);  // Spotify: the ceiling is the user's again
    EXPECT_TRUE(norm->ceilingControl()->isEnabled());
    EXPECT_FALSE(norm->lockLine()->isVisible());
    EXPECT_EQ(norm->targetControl()->readingText(), "-14.0 LUFS");
    EXPECT_FALSE(w.output()->dialogueNote()->isVisible());
}

TEST_F(WindowSession, TheBatchIsExportedIntoTheChosenFolderWithItsReports) {
    MainWindow& w = *window;
    dropSession();
    const fs::path out = dir / "exports";
    fs::create_directories(out);
    choosers.folder = q(out);
    w.actions()->exportButton()->click();
    EXPECT_TRUE(model->busy());
    EXPECT_EQ(w.actions()->exportButton()->text(), "TRAITEMENT EN COURS…");
    EXPECT_FALSE(w.actions()->exportButton()->isEnabled());
    EXPECT_FALSE(w.actions()->saveAsButton()->isEnabled());
    EXPECT_FALSE(w.fileList()->clearButton()->isEnabled());
    EXPECT_TRUE(eventually([&] { return !w.fileList()->progressLabel()->isHidden(); }));
    EXPECT_TRUE(w.fileList()->progressLabel()->text().startsWith("Mastering ")) << w.fileList()->progressLabel()->text().toStdString();
    ASSERT_TRUE(waitIdle(*model, 300));
    settle(50);
    EXPECT_EQ(model->globalStatus(), "Traitement par lots terminé ✓ (3 fichiers)");
    EXPECT_EQ(w.actions()->statusLine()->text(), model->globalStatus());
    EXPECT_EQ(w.actions()->exportButton()->text(), "EXPORTER");

    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(out)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    auto has = [&](const std::string& prefix, const std::string& extension) {
        return std::any_of(names.begin(), names.end(), [&](const std::string& n) {
            return n.rfind(prefix, 0) == 0 && n.size() > extension.size() && n.substr(n.size() - extension.size()) == extension;
        });
    };
    for (const std::string stem : {"Interview_master_-23LUFS", "Album_Mix_master_-23LUFS", "Reportage_master_-23LUFS"}) {
        const std::string master = stem.rfind("Reportage", 0) == 0 ? ".mov" : ".wav";
        EXPECT_TRUE(has(stem, master)) << stem;
        EXPECT_TRUE(has(stem, ".txt")) << stem;
        EXPECT_TRUE(has(stem, ".pdf")) << stem;
    }
    for (const auto& item : model->queue()) EXPECT_EQ(item.status, ItemStatus::mastered);
    // The list shows the new statuses.
    EXPECT_EQ(statusText(model->queue()[0].status), "Masterisé ✓");
}

TEST_F(WindowSession, TheAlbumSwitchExportsTheBatchWithOneGain) {
    MainWindow& w = *window;
    dropSession();
    LedToggle* album = w.output()->albumToggle();
    ASSERT_FALSE(album->isChecked());
    album->click();
    EXPECT_TRUE(model->album());
    const fs::path out = dir / "album";
    fs::create_directories(out);
    choosers.folder = q(out);
    w.actions()->exportButton()->click();
    ASSERT_TRUE(waitIdle(*model, 300));
    settle(50);
    ASSERT_TRUE(model->lastAlbum().has_value()) << model->globalStatus().toStdString();
    EXPECT_TRUE(model->globalStatus().startsWith("Traitement par lots terminé ✓ (3 fichiers) · album "))
        << model->globalStatus().toStdString();
    // Every master moved by the album's gain from its own source loudness.
    for (const auto& item : model->queue()) {
        ASSERT_EQ(item.status, ItemStatus::mastered) << item.name.toStdString();
        EXPECT_NEAR(item.measured->integratedLUFS - item.originalMeasure->integratedLUFS, model->lastAlbum()->gainDB, 0.3)
            << item.name.toStdString();
    }
}

TEST_F(WindowSession, SpaceStartsAndStopsPlaybackButTypesInTheFields) {
    MainWindow& w = *window;
    dropSession();
    QApplication::setActiveWindow(&w);
    w.fileList()->rows()->setFocus();
    ASSERT_FALSE(model->isPlaybackPlaying());
    QTest::keyClick(w.fileList()->rows(), Qt::Key_Space);
    ASSERT_TRUE(model->isPlaybackPlaying()) << model->globalStatus().toStdString();
    EXPECT_TRUE(w.liveTimer().isActive());
    EXPECT_TRUE(w.transport()->playButton()->icon() == window::Icon::pause);
    // The clock and the cursor follow the timer; the loudness at the playhead reads beside the
    // transport, while the meter block keeps the file's measurement.
    ASSERT_TRUE(eventually([&] { return w.transport()->clock()->text() >= "00:00.5"; }));
    EXPECT_GT(w.transport()->waveform()->progress(), 0.0);
    ASSERT_TRUE(eventually([&] { return w.transport()->playheadLoudness()->text().startsWith("M -"); }))
        << w.transport()->playheadLoudness()->text().toStdString();
    EXPECT_TRUE(w.transport()->playheadLoudness()->text().endsWith(" LUFS"));
    EXPECT_EQ(w.transport()->playingLabel()->text(), "LECTURE");
    EXPECT_DOUBLE_EQ(w.measures()->integratedMeter()->value(), model->selectedItem()->measured->integratedLUFS);
    QTest::keyClick(w.fileList()->rows(), Qt::Key_Space);
    EXPECT_FALSE(model->isPlaybackPlaying());
    EXPECT_FALSE(w.liveTimer().isActive());
    EXPECT_EQ(w.transport()->playheadLoudness()->text(), "");

    // In the preset name field the space is a space.
    w.sideTabs()->setTab(window::PresetTab::presets);
    QLineEdit* field = w.sideTabs()->presetNameField();
    field->setFocus();
    QTest::keyClicks(field, "Voix");
    QTest::keyClick(field, Qt::Key_Space);
    QTest::keyClicks(field, "off");
    EXPECT_EQ(field->text(), "Voix off");
    EXPECT_FALSE(model->isPlaybackPlaying());
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_EQ(model->globalStatus(), "Preset « Voix off » enregistré ✓");
    ASSERT_EQ(model->userPresets().size(), 1u);
    EXPECT_EQ(w.sideTabs()->loadPicker()->currentLabel(), "Charger un preset (1)");

    // Home and End go to the ends; the stop button rewinds.
    w.fileList()->rows()->setFocus();
    QTest::keyClick(&w, Qt::Key_End);
    EXPECT_DOUBLE_EQ(model->playPosition(), 1.0);
    EXPECT_EQ(w.transport()->clock()->text(), window::elapsedText(model->selectedDuration()));
    QTest::keyClick(&w, Qt::Key_Home);
    EXPECT_DOUBLE_EQ(model->playPosition(), 0.0);

    // A click on "M max" takes the playhead to the loudest 400 ms.
    const LoudnessResult m = *model->selectedItem()->measured;
    ASSERT_TRUE(m.momentaryMaxSeconds);
    QTest::mouseClick(w.measures()->momentaryMaxBadge(), Qt::LeftButton);
    EXPECT_NEAR(model->playPosition() * model->selectedDuration(), *m.momentaryMaxSeconds, 0.05);
    ASSERT_TRUE(m.truePeakSeconds);
    QTest::mouseClick(w.measures()->truePeakBadge(), Qt::LeftButton);
    EXPECT_NEAR(model->playPosition() * model->selectedDuration(), *m.truePeakSeconds, 0.05);
    // The file's loud hit is where the maxima are.
    EXPECT_NEAR(*m.truePeakSeconds, 15.0, 0.35);

    // While a job runs the space bar does nothing.
    choosers.folder = q(dir.path());
    w.actions()->exportButton()->click();
    ASSERT_TRUE(model->busy());
    QTest::keyClick(w.fileList()->rows(), Qt::Key_Space);
    EXPECT_FALSE(model->isPlaybackPlaying());
    ASSERT_TRUE(waitIdle(*model, 300));
}

TEST_F(WindowSession, LiveMasteringPlaysThroughTheChainToTheChosenPorts) {
    MainWindow& w = *window;
    dropSession();
    ProbeClient probe(server->name(), "probe", 2, 48000 * 30);
    ASSERT_TRUE(probe.open());
    model->setLiveMonitorEnabled(true);
    model->setLiveMonitorDeviceUID("JACK:probe");
    model->setLiveMonitorChannelL(0);
    model->setLiveMonitorChannelR(1);

    w.transport()->liveSwitch()->click();
    ASSERT_TRUE(model->isLiveMastering()) << model->globalStatus().toStdString();
    EXPECT_EQ(w.transport()->liveSwitch()->text(), "LIVE");
    ASSERT_TRUE(probe.receiveMore(48000));
    EXPECT_TRUE(w.liveTimer().isActive());
    // The live readings replace the stored ones in the meter block.
    ASSERT_TRUE(eventually([&] { return std::isfinite(w.measures()->shortTermMeter()->value()); }));
    const auto live = model->liveLevels();
    ASSERT_TRUE(live);
    settle(200);
    EXPECT_NE(w.measures()->integratedMeter()->value(), model->selectedItem()->measured->integratedLUFS);

    // A knob moved while live is heard at once: the model forwards it to the streamer.
    MasterParams p = model->mp();
    p.eqOn = true;
    p.lsGain = 4;
    p.hsGain = 3;
    p.compOn = true;
    p.compThreshold = -26;
    p.compRatio = 3;
    model->setMp(p);
    SSLKnob* makeup = w.chain()->knobNamed("GAIN DE COMPENSATION");
    makeup->setFocus();
    QTest::keyClick(makeup, Qt::Key_PageUp);
    EXPECT_NEAR(model->mp().compMakeup, 1.2, 1e-9);
    // Seeking on the waveform moves the streamer.
    QTest::mouseClick(w.transport()->waveform(), Qt::LeftButton, {},
                      QPoint(w.transport()->waveform()->width() / 2, w.transport()->waveform()->height() / 2));
    settle(1500);
    EXPECT_GT(model->playPosition(), 0.45);
    w.settingsColumn()->verticalScrollBar()->setValue(w.chain()->y());
    w.sideTabs()->setTab(window::PresetTab::utilitaires);
    settle(300);
    keepScreenshot(grabWindow(w), "4-live-mastering");

    // Space stops live mastering when live monitoring is on with a device.
    w.fileList()->rows()->setFocus();
    QTest::keyClick(w.fileList()->rows(), Qt::Key_Space);
    EXPECT_FALSE(model->isLiveMastering());
    EXPECT_EQ(w.transport()->liveSwitch()->text(), "READY");
    EXPECT_FALSE(w.liveTimer().isActive());
}

TEST_F(WindowSession, UtilitiesWriteTheCalibrationNoiseAndShowThePadCheck) {
    MainWindow& w = *window;
    dropSession();
    w.sideTabs()->setTab(window::PresetTab::utilitaires);
    const QString noise = q(dir / "RLL.wav");
    choosers.saveFile = noise;
    w.sideTabs()->pinkNoiseButton()->click();
    ASSERT_TRUE(waitIdle(*model));
    EXPECT_TRUE(fs::exists(noise.toStdString()));
    EXPECT_EQ(model->globalStatus(), "Bruit rose RLL enregistré : RLL.wav ✓");

    // The selected file is 24 s: a short programme, judged on its short-term maximum.
    const QStringList lines = w.sideTabs()->padLines();
    ASSERT_EQ(lines.size(), 3);
    EXPECT_TRUE(lines[0].startsWith("Crête vraie (True Peak) · "));
    EXPECT_TRUE(lines[1].startsWith("Sonie court terme max · ")) << lines[1].toStdString();
    EXPECT_TRUE(lines[1].endsWith(" · ≤ -20,0 LUFS"));
    const QString verdict = w.sideTabs()->padVerdict()->text();
    EXPECT_TRUE(verdict == "CONFORME RT-040" || verdict == "NON CONFORME");
    // Judged as a long programme: the peak, then integrated, range and short-term lines.
    w.sideTabs()->setPadLength(false);
    EXPECT_EQ(w.sideTabs()->padLines().size(), 4);
    EXPECT_TRUE(w.sideTabs()->padLines()[1].endsWith(" · -23,0 ±1,0 LUFS"));
    keepScreenshot(grabWindow(w), "utilities");

    // A/B excerpts beside the source, revealed.
    w.sideTabs()->abButton()->click();
    ASSERT_TRUE(waitIdle(*model, 120));
    // With how far apart the two are, one decimal.
    EXPECT_TRUE(QRegularExpression("^Extraits A/B créés ✓ — écart de sonie : \\d+\\.\\d LU \\(ouverts dans le gestionnaire de fichiers\\)$")
                    .match(model->globalStatus())
                    .hasMatch())
        << model->globalStatus().toStdString();
    EXPECT_EQ(choosers.revealed.size(), 2);
}

TEST_F(WindowSession, PresetsAreSavedLoadedAndDeletedFromTheSideTab) {
    MainWindow& w = *window;
    auto* side = w.sideTabs();
    EXPECT_TRUE(side->noPresetNote()->isVisible());
    EXPECT_EQ(side->noPresetNote()->text(), "Aucun preset enregistré pour l'instant.");
    EXPECT_FALSE(side->loadPicker()->isVisible());
    side->savePresetButton()->click();
    EXPECT_EQ(model->globalStatus(), "Donnez un nom au preset.");

    MasterParams warm = model->mp();
    warm.eqOn = true;
    warm.lsGain = 3;
    model->setMp(warm);
    side->presetNameField()->setText("Chaud");
    side->savePresetButton()->click();
    EXPECT_TRUE(side->presetNameField()->text().isEmpty());
    EXPECT_FALSE(side->noPresetNote()->isVisible());
    EXPECT_EQ(side->loadPicker()->currentLabel(), "Charger un preset (1)");

    model->setMp(MasterParams{});
    // Each saved chain is a row of the load menu: its name loads it, its bin deletes it.
    const auto rows = side->loadPicker()->menu()->actions();
    ASSERT_EQ(rows.size(), 1);
    auto* row = qobject_cast<QWidgetAction*>(rows.front())->defaultWidget();
    ASSERT_TRUE(row);
    row->findChild<QPushButton*>()->click();
    EXPECT_EQ(model->mp(), warm);
    EXPECT_DOUBLE_EQ(w.chain()->knobNamed("GRAVES · GAIN")->value(), 3);
    row = qobject_cast<QWidgetAction*>(side->loadPicker()->menu()->actions().front())->defaultWidget();
    row->findChild<window::IconButton*>()->click();
    ASSERT_TRUE(eventually([&] { return model->userPresets().empty(); }));
    EXPECT_TRUE(side->noPresetNote()->isVisible());
}

TEST_F(WindowSession, MultiMasterPacksAndExport) {
    MainWindow& w = *window;
    dropSession();
    auto* mm = w.multiMaster();
    mm->disclosure()->click();
    EXPECT_TRUE(mm->tickAllButton()->isVisible());
    EXPECT_EQ(mm->packsTitle()->text(), "Aucun pack sauvegardé.");
    mm->normToggle(0)->click();
    mm->normToggle(14)->click();
    EXPECT_EQ(model->multiMasterPresetIndices(), (std::set<int>{0, 14}));
    EXPECT_EQ(mm->exportButton()->text(), "Exporter 2 masters");
    mm->packNameField()->setText("  Diffusion  ");
    mm->savePackButton()->click();
    EXPECT_EQ(model->globalStatus(), "Pack « Diffusion » sauvegardé (2 normes) ✓");
    EXPECT_EQ(mm->packsTitle()->text(), "MES PACKS (1)");
    mm->tickAllButton()->click();
    EXPECT_EQ(model->multiMasterPresetIndices().size(), 21u);
    model->applyPack(model->multiMasterPacks().front().id);
    EXPECT_TRUE(mm->normToggle(14)->isChecked());
    EXPECT_FALSE(mm->normToggle(3)->isChecked());

    const fs::path out = dir / "multi";
    fs::create_directories(out);
    choosers.folder = q(out);
    mm->exportButton()->click();
    ASSERT_TRUE(waitIdle(*model, 300));
    EXPECT_EQ(model->globalStatus(), "Multi-Master terminé ✓ (2 masters générés)");
    EXPECT_TRUE(fs::exists(out / "Interview_master_EBU.wav"));
    EXPECT_TRUE(fs::exists(out / "Interview_master_Spotify.wav"));

    // The pack's bin deletes it.
    const auto bins = mm->findChildren<window::IconButton*>();
    ASSERT_EQ(bins.size(), 1);
    bins.front()->click();
    ASSERT_TRUE(eventually([&] { return model->multiMasterPacks().empty(); }));
    EXPECT_EQ(mm->packsTitle()->text(), "Aucun pack sauvegardé.");
}

}  // namespace
}  // namespace velmora::test
