// The model actions the main window needed beyond the Parts' own: drops with folders, deleting
// a preset, the PAD check of the selected file, the calibration noise and the display spectrum.
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <atomic>
#include <chrono>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <fstream>
#include <thread>
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
    writeFloatWav(dir / "tone.wav", sine(2.0, 0.1), 48000);
    // The analysis reads a pipe that stays empty until the test has looked: its job is then
    // certainly running, however fast it would otherwise be done and whatever the machine's load.
    const auto pipe = dir / "held.wav";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    FixedChoosers choosers;
    Model model(nullptr, &choosers);
    errno = 0;
    const int mainNice = getpriority(PRIO_PROCESS, id_t(gettid()));
    model.addFiles({q(pipe)});
    ASSERT_TRUE(model.busy());
    bool seen = false;
    QElapsedTimer clock;
    clock.start();
    while (!seen && clock.elapsed() < 20000) {
        const auto values = otherThreadsNiceness();
        seen = std::count(values.begin(), values.end(), 10) > 0;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    // Feeding the pipe lets the analysis end; it opens the file more than once (a pipe announces
    // no length, so the overview takes a pass of its own), so each open is fed the whole file.
    // The feeder never blocks: a reader that stops early must not leave it stuck in a write
    // that no one will ever read, once the test is over.
    std::signal(SIGPIPE, SIG_IGN);
    std::atomic<bool> done = false;
    std::thread feeder([&] {
        std::ifstream in(dir / "tone.wav", std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        while (!done) {
            const int fd = ::open(pipe.c_str(), O_WRONLY | O_NONBLOCK);  // ENXIO until a reader opens it
            if (fd < 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                continue;
            }
            for (std::size_t at = 0; !done && at < bytes.size();) {
                const ssize_t n = ::write(fd, bytes.data() + at, bytes.size() - at);
                if (n < 0 && errno == EAGAIN) {
                    pollfd room{fd, POLLOUT, 0};
                    ::poll(&room, 1, 10);
                    continue;
                }
                if (n <= 0) break;  // the reader had enough
                at += std::size_t(n);
            }
            ::close(fd);
        }
    });
    EXPECT_TRUE(seen) << "no job thread at niceness 10";
    EXPECT_EQ(getpriority(PRIO_PROCESS, id_t(gettid())), mainNice) << "the interface's thread kept its priority";
    const bool idle = waitIdle(model);
    done = true;
    feeder.join();
    ASSERT_TRUE(idle);
    EXPECT_EQ(model.queue().front().status, ItemStatus::ready);
}

}  // namespace
}  // namespace velmora::test
