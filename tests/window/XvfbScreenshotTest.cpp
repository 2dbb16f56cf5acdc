// One screenshot through a real X server (Xvfb) with the xcb platform plugin, as a desktop
// shows the window: it proves the window works on the real display path, not only off screen.
// Skipped, not failed, where Xvfb is not installed.
#include <QImage>
#include <gtest/gtest.h>

#include <cmath>
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

// On a screen smaller than the window's usual 1600 × 1000 (a laptop's 1280 × 720) the window
// opens at the screen's size, its action bar on screen.
TEST(MainWindowOnXvfb, OnALaptopScreenTheWindowOpensAtTheScreensSize) {
    if (runCommand("command -v Xvfb && command -v xvfb-run").exitCode != 0) GTEST_SKIP() << "Xvfb is not installed";
    ScratchDir dir;
    const std::string png = (dir / "laptop.png").string();
    const auto run = runCommand("xvfb-run -a -s '-screen 0 1280x720x24' env QT_QPA_PLATFORM=xcb " +
                                shellQuote(VELMORA_WINDOW_SHOT_PATH) + " " + shellQuote(png));
    ASSERT_EQ(run.exitCode, 0) << run.out << run.err;
    EXPECT_NE(run.out.find("window 1280x720, grabbed 1280x720"), std::string::npos) << run.out;
}

// The window at the sizes a laptop, a desktop and a 4K screen give it, at scale factors 1,
// 1.25, 1.5 and 2 (one X server and one window per factor, resized in turn): at each size the
// window checks its own layout (LayoutChecks.h) and reports nothing wrong, and the shot,
// kept as window-<size>@<factor>.png for review by eye, shows the action bar's EXPORTER in
// its amber at the bottom of the screen.
TEST(MainWindowOnXvfb, EverySizeFitsAtWholeAndFractionalScaleFactors) {
    if (runCommand("command -v Xvfb && command -v xvfb-run").exitCode != 0) GTEST_SKIP() << "Xvfb is not installed";
    ScratchDir dir;
    writeFloatWav(dir / "Interview.wav", programme(12, 0.12, 6.0, 1), 48000);
    std::filesystem::create_directories(VELMORA_WINDOW_SCREENSHOT_DIR);
    struct Run {
        const char* factor;
        double ratio;
        std::vector<QSize> sizes;
    };
    const std::vector<Run> runs = {
        {"1", 1.0, {{1024, 640}, {1280, 720}, {1920, 1080}, {3840, 2160}}},
        {"1.25", 1.25, {{1280, 720}, {1920, 1080}}},
        {"1.5", 1.5, {{1024, 640}, {1280, 720}, {1920, 1080}}},
        {"2", 2.0, {{1280, 720}, {1920, 1080}}},
    };
    for (const Run& run : runs) {
        SCOPED_TRACE(run.factor);
        QStringList sizes;
        QSize screen;
        for (const QSize& s : run.sizes) {
            sizes << QStringLiteral("%1x%2").arg(s.width()).arg(s.height());
            screen = screen.expandedTo(QSize(int(std::ceil(s.width() * run.ratio)), int(std::ceil(s.height() * run.ratio))));
        }
        const std::string command =
            "xvfb-run -a -s '-screen 0 " + std::to_string(screen.width()) + "x" + std::to_string(screen.height()) +
            "x24' env QT_QPA_PLATFORM=xcb QT_SCALE_FACTOR=" + run.factor + " " + shellQuote(VELMORA_WINDOW_SHOT_PATH) +
            " --sizes " + sizes.join(',').toStdString() + " --out " + shellQuote(VELMORA_WINDOW_SCREENSHOT_DIR) +
            " --tag " + run.factor + " " + shellQuote((dir / "Interview.wav").string());
        const auto result = runCommand(command);
        ASSERT_EQ(result.exitCode, 0) << result.out << result.err;
        EXPECT_NE(result.out.find("platform xcb, device pixel ratio " + std::string(run.factor) + "\n"), std::string::npos)
            << result.out;
        EXPECT_EQ(result.out.find("problem"), std::string::npos) << result.out;
        for (const QSize& s : run.sizes) {
            const QString name = QStringLiteral("%1x%2").arg(s.width()).arg(s.height());
            SCOPED_TRACE(name.toStdString());
            // The window took the size asked, whatever the factor.
            EXPECT_NE(result.out.find(QStringLiteral("shot %1: window %1,").arg(name).toStdString()), std::string::npos)
                << result.out;
            QImage image(QStringLiteral(VELMORA_WINDOW_SCREENSHOT_DIR "/window-%1@%2.png").arg(name, run.factor));
            ASSERT_FALSE(image.isNull());
            // The display server's pixels: the window's size at the factor.
            EXPECT_NEAR(image.width(), s.width() * run.ratio, 1.0);
            EXPECT_NEAR(image.height(), s.height() * run.ratio, 1.0);
            // EXPORTER's amber in the bottom band of the screen, where the action bar is.
            const int band = int(60 * run.ratio);
            int amber = 0;
            for (int y = image.height() - band; y < image.height(); ++y)
                for (int x = 0; x < image.width() / 2; ++x) {
                    const QColor c = image.pixelColor(x, y);
                    if (c.red() > 230 && c.green() > 130 && c.green() < 180 && c.blue() < 80) ++amber;
                }
            EXPECT_GT(amber, int(100 * run.ratio * run.ratio)) << "no EXPORTER at the bottom";
        }
    }
}

}  // namespace
}  // namespace velmora::test
