#pragma once
// Driving the real window: a session of real files (a WAV, a FLAC and a .mov made by ffmpeg),
// drops as a file manager sends them, waiting on the event loop, and screenshots kept for
// review by eye.
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QMimeData>
#include <QUrl>
#include <QWidget>
#include <cmath>
#include <filesystem>
#include <functional>
#include <numbers>
#include <random>
#include <vector>

#include "model/ModelTesting.h"
#include "support/TestSupport.h"

namespace velmora::test {

inline QString q(const std::filesystem::path& p) { return QString::fromStdString(p.string()); }

// Runs the event loop until `done`, at most `ms` milliseconds; its last answer.
inline bool eventually(const std::function<bool()>& done, int ms = 10000) {
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < ms) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return done();
}

// Lets the event loop run for `ms` milliseconds.
inline void settle(int ms) {
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < ms) QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
}

// Something like programme: a quiet opening, a body whose level breathes, one loud hit at
// `hitSeconds` (the loudest moment, where M max and the peak are), and a fade. Stereo, 48 kHz.
inline std::vector<std::vector<float>> programme(double seconds, double level, double hitSeconds, unsigned seed) {
    constexpr int rate = 48000;
    const std::size_t n = std::size_t(seconds * rate);
    std::vector<std::vector<float>> c(2, std::vector<float>(n));
    std::mt19937 rng(seed);
    std::normal_distribution<double> noise(0.0, 1.0);
    double pinkL = 0, pinkR = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const double t = double(i) / rate;
        double envelope = t < 2 ? 0.25 + 0.3 * t : 0.7 + 0.25 * std::sin(t * 1.3 + seed);
        if (t > seconds - 2) envelope *= (seconds - t) / 2;
        if (std::fabs(t - hitSeconds) < 0.3) envelope = 1.8;
        pinkL = 0.97 * pinkL + 0.03 * noise(rng);
        pinkR = 0.97 * pinkR + 0.03 * noise(rng);
        const double tone = 0.5 * std::sin(2 * std::numbers::pi * (110.0 + 55.0 * (seed % 3)) * t) +
                            0.25 * std::sin(2 * std::numbers::pi * 660.0 * t);
        c[0][i] = float(level * envelope * (tone + 4.0 * pinkL));
        c[1][i] = float(level * envelope * (0.9 * tone + 4.0 * pinkR));
    }
    return c;
}

struct Session {
    std::filesystem::path wav, flac, mov;
    QStringList paths() const { return {q(wav), q(flac), q(mov)}; }
};

// Three real files: Interview.wav (float WAV), Album_Mix.flac and Reportage.mov (mpeg4 + AAC).
inline Session makeSession(const ScratchDir& dir) {
    Session s;
    s.wav = dir / "Interview.wav";
    writeFloatWav(s.wav, programme(24, 0.12, 15.0, 1), 48000);
    writeFloatWav(dir / "mix-source.wav", programme(20, 0.3, 9.0, 2), 48000);
    s.flac = dir / "Album_Mix.flac";
    EXPECT_TRUE(ffmpeg("-i " + shellQuote((dir / "mix-source.wav").string()) + " -c:a flac -sample_fmt s16 " +
                       shellQuote(s.flac.string())));
    writeFloatWav(dir / "movie-sound.wav", programme(16, 0.08, 6.0, 3), 48000);
    s.mov = dir / "Reportage.mov";
    EXPECT_TRUE(ffmpeg("-f lavfi -i testsrc=size=160x120:rate=25:duration=16 -i " +
                       shellQuote((dir / "movie-sound.wav").string()) + " -c:v mpeg4 -c:a aac -b:a 192k -shortest " +
                       shellQuote(s.mov.string())));
    std::filesystem::remove(dir / "mix-source.wav");
    std::filesystem::remove(dir / "movie-sound.wav");
    return s;
}

// The local files as a file manager drags them: text/uri-list.
inline std::unique_ptr<QMimeData> uriList(const QStringList& paths) {
    auto mime = std::make_unique<QMimeData>();
    QList<QUrl> urls;
    for (const auto& p : paths) urls << QUrl::fromLocalFile(p);
    mime->setUrls(urls);
    return mime;
}

// Keeps a screenshot for review by eye (VELMORA_WINDOW_SCREENSHOT_DIR); tests never compare
// whole images.
inline QString keepScreenshot(const QImage& image, const QString& name) {
    std::filesystem::create_directories(VELMORA_WINDOW_SCREENSHOT_DIR);
    const QString path = QStringLiteral(VELMORA_WINDOW_SCREENSHOT_DIR "/%1.png").arg(name);
    image.save(path);
    return path;
}

}  // namespace velmora::test
