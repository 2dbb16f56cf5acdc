// The model actions the main window needed beyond the Parts' own: drops with folders, deleting
// a preset, the PAD check of the selected file, the calibration noise and the display spectrum.
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <cerrno>
#include <sys/resource.h>
#include <unistd.h>
#include <fstream>
#include <gtest/gtest.h>

#include "ModelTesting.h"
#include "model/Model.h"
#include "support/TestSupport.h"

namespace velmora::test {
namespace {

namespace fs = std::filesystem;
QString q(const fs::path& p) { return QString::fromStdString(p.string()); }

TEST(ModelWindowActions, ADroppedFolderIsSearchedAndADroppedFileQueuedAsItIs) {
    ScratchDir dir;
    fs::create_directories(dir / "album" / "cd2");
    writeFloatWav(dir / "album" / "b.wav", sine(1.0, 0.1), 48000);
    writeFloatWav(dir / "album" / "cd2" / "a.wav", sine(1.0, 0.1), 48000);
    std::ofstream(dir / "album" / "cover.txt") << "not audio";
    std::ofstream(dir / "notes.txt") << "dropped on purpose";
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    model.addDropped({q(dir / "album"), q(dir / "notes.txt")});
    ASSERT_TRUE(waitIdle(model));
    ASSERT_EQ(model.queue().size(), 3u);
    EXPECT_EQ(model.queue()[0].name, "b.wav");  // sorted by path: album/b.wav before album/cd2/a.wav
    EXPECT_EQ(model.queue()[1].name, "a.wav");
    EXPECT_EQ(model.queue()[2].name, "notes.txt");  // a file goes in as it is, and fails to read
    EXPECT_EQ(model.queue()[2].status, ItemStatus::readFailed);
}

TEST(ModelWindowActions, DeletingAPresetForgetsIt) {
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    model.saveUserPreset("A");
    model.saveUserPreset("B");
    ASSERT_EQ(model.userPresets().size(), 2u);
    QSignalSpy changed(&model, &Model::userPresetsChanged);
    model.deleteUserPreset(model.userPresets().front().id);
    ASSERT_EQ(model.userPresets().size(), 1u);
    EXPECT_EQ(model.userPresets().front().name, "B");
    EXPECT_EQ(changed.count(), 1);
    model.deleteUserPreset(QUuid::createUuid());
    EXPECT_EQ(changed.count(), 1);
}

TEST(ModelWindowActions, ThePadCheckFollowsTheFileOrTheChosenLength) {
    ScratchDir dir;
    writeFloatWav(dir / "spot.wav", sine(3.0, 0.05), 48000);
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    EXPECT_FALSE(model.selectedPADCheck());
    model.addFiles({q(dir / "spot.wav")});
    ASSERT_TRUE(waitIdle(model));
    const auto own = model.selectedPADCheck();
    ASSERT_TRUE(own);
    EXPECT_TRUE(own->isShort);  // 3 s
    EXPECT_EQ(own->lines.size(), 3u);
    const auto asLong = model.selectedPADCheck(false);
    ASSERT_TRUE(asLong);
    EXPECT_FALSE(asLong->isShort);
    EXPECT_EQ(asLong->lines.size(), 4u);
    EXPECT_EQ(asLong->lines[1].label, "Sonie intégrée (I)");
    EXPECT_TRUE(model.selectedPADCheck(true)->isShort);
}

TEST(ModelWindowActions, TheCalibrationNoiseIsWrittenWhereChosen) {
    ScratchDir dir;
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    model.saveRLLCalibration();  // cancelled: nothing happens
    EXPECT_FALSE(model.busy());
    EXPECT_EQ(model.globalStatus(), "");
    choosers.saveFile = q(dir / "RLL_500-2000Hz_-23LUFS_30s.wav");
    model.saveRLLCalibration();
    EXPECT_TRUE(model.busy());
    ASSERT_TRUE(waitIdle(model));
    EXPECT_TRUE(fs::exists(dir / "RLL_500-2000Hz_-23LUFS_30s.wav"));
    EXPECT_EQ(model.globalStatus(), "Bruit rose RLL enregistré : RLL_500-2000Hz_-23LUFS_30s.wav ✓");
    // A write that fails stays silent, as the calibration signal always has.
    model.setGlobalStatus("");
    choosers.saveFile = q(dir / "missing" / "folder" / "noise.wav");
    model.saveRLLCalibration();
    ASSERT_TRUE(waitIdle(model));
    EXPECT_EQ(model.globalStatus(), "");
}

TEST(ModelWindowActions, TheDisplaySpectrumIsTheStoredOneWhileNothingPlays) {
    ScratchDir dir;
    writeFloatWav(dir / "tone.wav", sine(2.0, 0.3), 48000);
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    EXPECT_TRUE(model.displaySpectrum().empty());
    model.addFiles({q(dir / "tone.wav")});
    ASSERT_TRUE(waitIdle(model));
    EXPECT_EQ(model.displaySpectrum(), model.selectedItem()->spectrumBins);
}

// The niceness of every thread of this process but the calling one.
std::vector<int> otherThreadsNiceness() {
    std::vector<int> values;
    const std::string self = std::to_string(gettid());
    for (const auto& task : fs::directory_iterator("/proc/self/task")) {
        if (task.path().filename() == self) continue;
        errno = 0;
        const int nice = getpriority(PRIO_PROCESS, id_t(std::stoi(task.path().filename().string())));
        if (errno == 0) values.push_back(nice);
    }
    return values;
}

TEST(ModelWindowActions, JobsGiveWayToTheInterface) {
    ScratchDir dir;
    writeFloatWav(dir / "long.wav", sine(120.0, 0.1), 48000);
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    model.addFiles({q(dir / "long.wav")});
    ASSERT_TRUE(model.busy());
    // While the analysis runs, its threads run at a lower priority than the main thread.
    bool seen = false;
    QElapsedTimer clock;
    clock.start();
    while (model.busy() && !seen && clock.elapsed() < 20000) {
        const auto values = otherThreadsNiceness();
        seen = std::count(values.begin(), values.end(), 10) > 0;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    EXPECT_TRUE(seen);
    EXPECT_EQ(getpriority(PRIO_PROCESS, id_t(gettid())), 0);
    ASSERT_TRUE(waitIdle(model));
}

}  // namespace
}  // namespace velmora::test
