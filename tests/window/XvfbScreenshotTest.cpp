// One screenshot through a real X server (Xvfb) with the xcb platform plugin, as a desktop
// shows the window: it proves the window works on the real display path, not only off screen.
// Skipped, not failed, where Xvfb is not installed.
#include <QImage>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "WindowTesting.h"

namespace velmora::test {
namespace {

TEST(MainWindowOnXvfb, TheWindowIsShownThroughTheX11DisplayPath) {
    if (runCommand("command -v Xvfb && command -v xvfb-run").exitCode != 0) GTEST_SKIP() << "Xvfb is not installed";
    ScratchDir dir;
    writeFloatWav(dir / "Interview.wav", programme(12, 0.12, 6.0, 1), 48000);
    const std::string png = (dir / "xvfb.png").string();
    const std::string command = "xvfb-run -a -s '-screen 0 1920x1200x24' env QT_QPA_PLATFORM=xcb " +
                                shellQuote(VELMORA_WINDOW_SHOT_PATH) + " " + shellQuote(png) + " " +
                                shellQuote((dir / "Interview.wav").string());
    const auto run = runCommand(command);
    ASSERT_EQ(run.exitCode, 0) << run.out << run.err;
    EXPECT_NE(run.out.find("platform xcb"), std::string::npos) << run.out;
    QImage image(QString::fromStdString(png));
    ASSERT_FALSE(image.isNull());
    EXPECT_GE(image.width(), 1280);
    EXPECT_GE(image.height(), 800);
    // Something was drawn: the dark chrome, panels, text and the accent.
    std::set<QRgb> colours;
    for (int y = 0; y < image.height(); y += 7)
        for (int x = 0; x < image.width(); x += 7) colours.insert(image.pixel(x, y));
    EXPECT_GT(colours.size(), 50u);
    keepScreenshot(image, "xvfb-xcb");
}

}  // namespace
}  // namespace velmora::test
