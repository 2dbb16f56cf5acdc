// The calibration noise and the test sine are fixed signals: same samples on every run, the
// stated loudness, band and shape; the A/B excerpt is the centred 30 s.
#include <cmath>
#include <numbers>

#include "audio/AudioFileReader.h"
#include "output/Excerpt.h"
#include "output/OutputTestSupport.h"
#include "output/SignalGenerators.h"

namespace velmora {
namespace {

using namespace test;

double integrated(const Channels& mono, double rate) {
    const double weights[] = {1.0};
    return LoudnessEngine::measure(mono, weights, rate).integratedLUFS;
}

// Mean power of one frequency over 0.1 s segments (Goertzel), to tell the pass band from what
// the filters remove; a single long transform of noise would vary too much.
double powerAt(const std::vector<float>& x, double hz, double rate) {
    const double k = 2 * std::cos(2 * std::numbers::pi * hz / rate);
    const std::size_t segment = std::size_t(rate / 10);
    double total = 0;
    for (std::size_t at = 0; at + segment <= x.size(); at += segment) {
        double s1 = 0, s2 = 0;
        for (std::size_t i = at; i < at + segment; ++i) {
            const double s = x[i] + k * s1 - s2;
            s2 = s1;
            s1 = s;
        }
        total += s1 * s1 + s2 * s2 - k * s1 * s2;
    }
    return total;
}

TEST(SignalGenerators, PinkNoiseIsIdenticalEveryRunAtMinus23LufsInsideItsBand) {
    const std::vector<float> a = generatePinkNoise(30.0, 48000.0), b = generatePinkNoise(30.0, 48000.0);
    ASSERT_EQ(a.size(), 1440000u);
    EXPECT_EQ(a, b);
    EXPECT_NEAR(integrated({a}, 48000.0), -23.0, 0.05);
    const double inBand = powerAt(a, 1000.0, 48000.0);
    EXPECT_GT(inBand, 10 * powerAt(a, 100.0, 48000.0));
    EXPECT_GT(inBand, 10 * powerAt(a, 8000.0, 48000.0));
    EXPECT_TRUE(generatePinkNoise(0.0, 48000.0).empty());
}

TEST(SignalGenerators, CalibrationFileIsMono48k24BitThirtySecondsAtMinus23Lufs) {
    ScratchDir dir;
    const auto path = dir / std::string(rllCalibrationFileName);
    ASSERT_TRUE(saveRLLCalibration(path));
    const SndfileView sf = readWithSndfile(path);
    EXPECT_EQ(sf.info.format, SF_FORMAT_WAVEX | SF_FORMAT_PCM_24);
    EXPECT_EQ(sf.info.samplerate, 48000);
    EXPECT_EQ(sf.info.frames, 1440000);
    EXPECT_EQ(probe(path)["channel_layout"], "mono");
    const auto decoded = readAudioFile(path);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->channels, sf.channels);
    EXPECT_NEAR(integrated(decoded->channels, 48000.0), -23.0, 0.05);
}

TEST(SignalGenerators, TestSineStartsAtZeroAndRepeatsEvery48Samples) {
    const Channels sine = makeTestSine();
    ASSERT_EQ(sine.size(), 2u);
    ASSERT_EQ(sine[0].size(), 96000u);
    EXPECT_EQ(sine[0], sine[1]);
    EXPECT_EQ(sine[0][0], 0.0f);
    EXPECT_NEAR(sine[0][12], 0.0707f, 1e-7);
    EXPECT_NEAR(sine[0][36], -0.0707f, 1e-7);
    for (std::size_t k = 48; k < sine[0].size(); ++k) ASSERT_EQ(sine[0][k], sine[0][k - 48]) << k;
}

TEST(SignalGenerators, ExcerptIsTheCentredThirtySecondsOrTheWholeOfAShortFile) {
    // Channel 0 counts the frames within each second, channel 1 the seconds.
    auto clock = [](std::size_t frames) {
        Channels c(2, std::vector<float>(frames));
        for (std::size_t i = 0; i < frames; ++i) c[0][i] = float(i % 48000), c[1][i] = float(i / 48000);
        return c;
    };
    const Channels cut = excerpt(clock(48000 * 600), 48000.0);
    ASSERT_EQ(cut[0].size(), 1440000u);
    EXPECT_EQ(cut[1].front(), 285.0f);  // 4:45
    EXPECT_EQ(cut[0].front(), 0.0f);
    EXPECT_EQ(cut[1].back(), 314.0f);
    EXPECT_EQ(cut[0].back(), 47999.0f);
    EXPECT_EQ(excerpt(clock(48000 * 20), 48000.0), clock(48000 * 20));
    EXPECT_EQ(excerpt(clock(1440003), 48000.0)[0].front(), 1.0f);
}

}  // namespace
}  // namespace velmora
