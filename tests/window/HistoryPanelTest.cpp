// The loudness history and the events list in the real window over a real analysed file: the
// overs and clipping placed in it are listed where they are, a click on one seeks playback
// there, the history zooms, pans and reads out; live mastering draws over it. Screenshots of a
// film with overs, a song and live mastering are kept for review by eye.
#include <QDoubleSpinBox>
#include <QHeaderView>
#include <QLabel>
#include <QTest>
#include <QTreeWidget>
#include <QWheelEvent>
#include <algorithm>
#include <gtest/gtest.h>

#include "WindowOnJack.h"
#include "model/Model.h"
#include "ui/LoudnessHistoryView.h"
#include "ui/MainWindow.h"
#include "ui/ChannelBarsView.h"
#include "ui/LedToggle.h"
#include "ui/StudioPrimaryButton.h"
#include "ui/StudioSegmentButton.h"
#include "ui/BigMeter.h"
#include "ui/window/ActionBar.h"
#include "ui/window/Controls.h"
#include "ui/window/DiagnosisSection.h"
#include "ui/window/FigureOrigin.h"
#include "ui/window/EventsList.h"
#include "ui/window/FileListSection.h"
#include "ui/window/HistorySection.h"
#include "ui/window/MeasuresSection.h"
#include "ui/window/TransportSection.h"
#include "ui/window/WindowText.h"

namespace velmora::test {
namespace {

namespace fs = std::filesystem;

// 90 s of programme; the left channel hard-clipped over 20.0–20.3 s and 60.0–60.2 s, the right
// at -0.3 dBFS over 45.0–45.4 s.
fs::path filmWithOvers(const ScratchDir& dir) {
    auto c = programme(90, 0.05, 70.0, 4);
    const auto clip = [&](double from, double to) {
        for (auto i = std::size_t(from * 48000); i < std::size_t(to * 48000); ++i)
            c[0][i] = float(std::clamp(2.0 * std::sin(2 * std::numbers::pi * 220 * double(i) / 48000), -1.0, 1.0));
    };
    clip(20.0, 20.3);
    clip(60.0, 60.2);
    for (auto i = std::size_t(45.0 * 48000); i < std::size_t(45.4 * 48000); ++i)
        c[1][i] = float(std::pow(10.0, -0.3 / 20) * std::sin(2 * std::numbers::pi * 997 * double(i) / 48000));
    const fs::path path = dir / "Film_Overs.wav";
    writeFloatWav(path, c, 48000);
    return path;
}

class HistoryPanel : public WindowOnJack {
protected:
    void analyse(const QStringList& paths) {
        model->addDropped(paths);
        ASSERT_TRUE(waitIdle(*model));
        settle(50);
    }
    double playedSeconds() const { return model->playPosition() * model->selectedDuration(); }

    ScratchDir dir;
};

TEST_F(HistoryPanel, TheOversAndClippingAreListedAndAClickGoesThere) {
    analyse({q(filmWithOvers(dir))});
    MainWindow& w = *window;
    ASSERT_TRUE(model->selectedItem());
    LoudnessHistoryView* history = w.history()->history();
    window::EventsList* list = w.history()->eventsList();
    EXPECT_NEAR(history->duration(), 90.0, 0.1);
    EXPECT_EQ(w.history()->sourceBadge()->text(), "SOURCE");

    // Norm 0: ceiling -1 dBTP. Two clipped passages (each also over), and the right channel's over.
    const auto& events = list->events();
    const auto at = [&](EventKind kind, double start) {
        return std::find_if(events.begin(), events.end(), [&](const LoudnessEvent& e) {
            return e.kind == kind && std::fabs(e.startSeconds - start) < 0.01;
        });
    };
    ASSERT_NE(at(EventKind::clipping, 20.0), events.end());
    ASSERT_NE(at(EventKind::clipping, 60.0), events.end());
    const auto over = at(EventKind::truePeakOver, 45.0);
    ASSERT_NE(over, events.end());
    EXPECT_EQ(over->channel, 1);
    EXPECT_NEAR(over->endSeconds, 45.4, 0.01);
    EXPECT_EQ(history->events().size(), events.size());
    ASSERT_EQ(list->topLevelItemCount(), int(events.size()));
    const int row = int(over - events.begin());
    EXPECT_EQ(list->topLevelItem(row)->text(0), "00:00:45.00");
    EXPECT_EQ(list->topLevelItem(row)->text(1), "Dépassement TP");
    EXPECT_EQ(list->topLevelItem(row)->text(2), window::signedOneDecimal(over->valueDB) + " dBTP");
    EXPECT_EQ(list->topLevelItem(row)->text(3), "R");
    EXPECT_TRUE(w.measures()->warnings().contains("⚠ Source écrêtée : 2 passages")) << w.measures()->warnings().join('|').toStdString();

    // A click on the row takes playback there.
    list->scrollToItem(list->topLevelItem(row));
    const QRect r = list->visualItemRect(list->topLevelItem(row));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, r.center());
    EXPECT_NEAR(playedSeconds(), 45.0, 0.05);
    settle(50);
    keepScreenshot(w.grab().toImage(), "history-1-film-with-overs");
    keepScreenshot(w.history()->grab().toImage(), "history-1-film-with-overs-panel");

    // A click on the history seeks to the time under it.
    const int x = int(std::lround(history->xAtSeconds(60.0)));
    QTest::mouseClick(history, Qt::LeftButton, {}, QPoint(x, history->height() / 2));
    const double secondsPerPixel = history->duration() / (history->width() - 36.0);
    EXPECT_NEAR(playedSeconds(), 60.0, 2 * secondsPerPixel);
    EXPECT_NEAR(history->secondsAtX(history->xAtSeconds(12.5)), 12.5, 1e-9);

    // The wheel zooms around the pointer; a drag pans; the pointer's levels are read out.
    const QPointF pointer(history->xAtSeconds(45.0), history->height() / 2.0);
    QWheelEvent wheel(pointer, history->mapToGlobal(pointer), {}, QPoint(0, 5 * 120), Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(history, &wheel);
    const double span = history->viewEnd() - history->viewStart();
    EXPECT_NEAR(span, 90.0 * std::pow(0.8, 5), 0.01);
    EXPECT_NEAR(history->secondsAtX(pointer.x()), 45.0, 1e-6);
    const double before = history->viewStart();
    QTest::mousePress(history, Qt::LeftButton, {}, QPoint(300, 60));
    QTest::mouseMove(history, QPoint(250, 60));
    QTest::mouseRelease(history, Qt::LeftButton, {}, QPoint(250, 60));
    EXPECT_NEAR(history->viewStart() - before, 50.0 / (history->width() - 36.0) * span, 0.01);
    EXPECT_NEAR(playedSeconds(), 60.0, 2 * secondsPerPixel);  // a drag is not a click
    const int x50 = int(history->xAtSeconds(50.0));
    QTest::mouseMove(history, QPoint(x50, 60));
    EXPECT_TRUE(history->readout().startsWith(QString::fromStdString(timecode(history->secondsAtX(x50)))))
        << history->readout().toStdString();
    EXPECT_NEAR(history->secondsAtX(x50), 50.0, span / 100);
    EXPECT_TRUE(history->readout().contains(" LUFS"));
    settle(50);
    keepScreenshot(w.history()->grab().toImage(), "history-2-zoomed-with-readout");

    // Momentary overs only once the user sets a limit.
    const auto momentaryOvers = [&] {
        const auto& l = list->events();
        return std::count_if(l.begin(), l.end(), [](const auto& e) { return e.kind == EventKind::momentaryOver; });
    };
    EXPECT_EQ(momentaryOvers(), 0);
    EXPECT_FALSE(w.history()->momentaryLimit()->isEnabled());
    w.history()->momentaryLimitSwitch()->click();
    w.history()->momentaryLimit()->setValue(-12.0);
    EXPECT_GT(momentaryOvers(), 0);
    for (const auto& e : list->events()) {
        if (e.kind == EventKind::momentaryOver) {
            EXPECT_GT(e.valueDB, -12.0);
        }
    }
    w.history()->momentaryLimitSwitch()->click();
    EXPECT_EQ(momentaryOvers(), 0);

    // A stricter ceiling lists no fewer overs (and French TV sets no short-term limit).
    const auto overs = [](const std::vector<LoudnessEvent>& l) {
        return std::count_if(l.begin(), l.end(), [](const auto& e) { return e.kind == EventKind::truePeakOver; });
    };
    const auto atMinus1 = overs(events);
    EXPECT_GT(std::count_if(events.begin(), events.end(), [](const auto& e) { return e.kind == EventKind::shortTermOver; }), 0);
    model->applyPreset(1);
    settle(20);
    EXPECT_GE(overs(list->events()), atMinus1);
    for (const auto& e : list->events()) EXPECT_NE(e.kind, EventKind::shortTermOver);
}

TEST_F(HistoryPanel, ASongAndLiveMasteringDrawnAsTheyCome) {
    const fs::path song = dir / "Song.wav";
    writeFloatWav(song, programme(40, 0.3, 24.0, 5), 48000);
    analyse({q(song)});
    MainWindow& w = *window;
    LoudnessHistoryView* history = w.history()->history();
    ASSERT_GT(history->duration(), 39.0);
    keepScreenshot(w.history()->grab().toImage(), "history-3-song");

    ProbeClient probe(server->name(), "probe", 2, 48000 * 30);
    ASSERT_TRUE(probe.open());
    model->setLiveMonitorEnabled(true);
    model->setLiveMonitorDeviceUID("JACK:probe");
    model->setLiveMonitorChannelL(0);
    model->setLiveMonitorChannelR(1);
    w.transport()->liveSwitch()->click();
    ASSERT_TRUE(model->isLiveMastering()) << model->globalStatus().toStdString();
    EXPECT_EQ(w.history()->sourceBadge()->text(), "SOURCE + LIVE");
    ASSERT_TRUE(eventually([&] { return history->liveReadings() >= 15; }, 15000));
    keepScreenshot(w.history()->grab().toImage(), "history-4-live-mastering");
    keepScreenshot(w.grab().toImage(), "history-4-live-mastering-window");
    model->stopLiveMastering();
    EXPECT_EQ(w.history()->sourceBadge()->text(), "SOURCE");
}

TEST_F(HistoryPanel, EveryFigureSaysWhatItIsOfAndTheSwitchMovesThemTogether) {
    const fs::path song = dir / "Loud_Song.wav";
    writeFloatWav(song, programme(30, 0.3, 14.0, 6), 48000);
    analyse({q(song)});
    MainWindow& w = *window;
    const auto origins = [&] {
        return std::vector<QString>{w.measures()->origin()->text(), w.diagnosis()->conformityOrigin()->text(),
                                    w.diagnosis()->diagnosisOrigin()->text()};
    };
    const std::vector<QString> source(3, "SOURCE"), master(3, "MASTER");
    EXPECT_EQ(origins(), source);
    EXPECT_FALSE(w.measures()->origin()->masterButton()->isVisible());  // nothing to switch to yet
    const FileItem& item = *model->selectedItem();
    ASSERT_TRUE(item.measured->loudnessRangeLow && item.measured->loudnessRangeHigh);
    EXPECT_EQ(w.measures()->rangeLabel(), QStringLiteral("LRA  %1 … %2")
                                              .arg(window::oneDecimal(*item.measured->loudnessRangeLow),
                                                   window::oneDecimal(*item.measured->loudnessRangeHigh)));

    // After an export the three panels show the master, and say so.
    choosers.folder = q(dir.path());
    w.actions()->exportButton()->click();
    ASSERT_TRUE(waitIdle(*model, 300));
    settle(50);
    const FileItem& done = *model->selectedItem();
    ASSERT_EQ(done.status, ItemStatus::mastered);
    EXPECT_EQ(origins(), master);
    EXPECT_DOUBLE_EQ(w.measures()->integratedMeter()->value(), done.measured->integratedLUFS);
    EXPECT_NEAR(done.measured->integratedLUFS, -23.0, 0.2);
    EXPECT_TRUE(w.diagnosis()->conformityLine()->text().startsWith("Le dernier master : ")) << w.diagnosis()->conformityLine()->text().toStdString();
    EXPECT_TRUE(w.diagnosis()->normList()->checks()[0].integratedOK);
    ASSERT_TRUE(w.measures()->origin()->sourceButton()->isVisible());
    settle(50);
    keepScreenshot(w.grab().toImage(), "history-5-master-shown");

    // The switch takes all three back to the source.
    QTest::mouseClick(w.measures()->origin()->sourceButton(), Qt::LeftButton);
    EXPECT_FALSE(model->showsMaster());
    EXPECT_EQ(origins(), source);
    EXPECT_DOUBLE_EQ(w.measures()->integratedMeter()->value(), done.originalMeasure->integratedLUFS);
    EXPECT_TRUE(w.diagnosis()->conformityLine()->text().startsWith("Le fichier sans aucune retouche : "));
    EXPECT_EQ(w.diagnosis()->normList()->checks().size(), 21u);
    EXPECT_FALSE(w.diagnosis()->normList()->checks()[0].integratedOK);
    QTest::mouseClick(w.measures()->origin()->masterButton(), Qt::LeftButton);
    EXPECT_EQ(origins(), master);
}

TEST_F(HistoryPanel, AFivePointOneFileShowsEachChannelByItsName) {
    const std::size_t n = 10 * 48000;
    std::vector<std::vector<float>> c(6, std::vector<float>(n, 0.0f));
    for (std::size_t i = 0; i < n; ++i) {
        const double s = std::sin(2 * std::numbers::pi * 997 * double(i) / 48000);
        c[0][i] = float(0.1 * s);    // L: -23 LUFS alone
        c[2][i] = float(0.05 * s);   // C: 6 dB under
        c[3][i] = float(0.5 * std::sin(2 * std::numbers::pi * 50 * double(i) / 48000));  // LFE: not counted
        c[4][i] = float(0.1 * s);    // Ls, weighted 1.41
    }
    writeFloatWav(dir / "Surround.wav", c, 48000);
    analyse({q(dir / "Surround.wav")});
    ChannelBarsView* bars = window->history()->channelBars();
    ASSERT_TRUE(bars->isVisible());
    ASSERT_EQ(bars->channels().size(), 6u);
    QStringList labels;
    for (const auto& ch : bars->channels()) labels << ch.label;
    EXPECT_EQ(labels.join(' '), "L R C LFE Ls Rs");
    EXPECT_EQ(bars->channelText(0), "L -23.0 LUFS -20.0 dBTP");
    EXPECT_EQ(bars->channelText(2), "C -29.0 LUFS -26.0 dBTP");
    EXPECT_EQ(bars->channelText(3), "LFE — LUFS -6.0 dBTP");
    EXPECT_EQ(bars->channelText(4), "Ls -21.5 LUFS -20.0 dBTP");
    settle(50);
    keepScreenshot(window->history()->grab().toImage(), "history-6-surround-channels");
    // A stereo file has no bars.
    const fs::path song = dir / "Stereo.wav";
    writeFloatWav(song, programme(8, 0.2, 4.0, 7), 48000);
    analyse({q(song)});
    model->select(model->queue().back().id);
    settle(20);
    EXPECT_FALSE(bars->isVisible());
}

}  // namespace
}  // namespace velmora::test
