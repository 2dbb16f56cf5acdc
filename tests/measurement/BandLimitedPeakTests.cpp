// The band-limited peak against signals whose crest is known in closed form. Tones fade in and
// out over 10 ms so that their ends add no crest of their own; their steady middle reads the
// tone's amplitude.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "measurement/BandLimitedPeak.h"
#include "measurement/Signals.h"

namespace velmora {
namespace {

using namespace signals;

double dB(double lin) { return 20.0 * std::log10(lin); }

std::vector<float> fadedTone(double frequency, double amplitude, double phaseDegrees, std::size_t frames = 9600) {
    const double fade = 480.0;
    std::vector<float> x(frames);
    for (std::size_t n = 0; n < frames; ++n) {
        const double e = std::min({1.0, double(n) / fade, double(frames - 1 - n) / fade});
        x[n] = float(amplitude * (0.5 - 0.5 * std::cos(std::numbers::pi * e)) * sineSample(frequency, fs48, n, phaseDegrees));
    }
    return x;
}

double samplePeak(const std::vector<float>& x) {
    return std::fabs(*std::max_element(x.begin(), x.end(), [](float a, float b) { return std::fabs(a) < std::fabs(b); }));
}

double meterPeak(const std::vector<float>& x, double watchFromLin, std::size_t block) {
    BandLimitedPeakMeter meter(watchFromLin);
    for (std::size_t i = 0; i < x.size(); i += block) meter.process(x.data() + i, std::min(block, x.size() - i));
    meter.finish();
    return meter.peak();
}

// Peaks at 0.89 in its samples and 0.90 between them.
std::vector<float> noise(std::size_t frames, float gain = 1.5f) {
    PinkishNoise source(7, fs48);
    std::vector<float> x(frames);
    for (auto& v : x) v = gain * float(source.next());
    return x;
}

TEST(BandLimitedPeak, TonesReadTheirAmplitudeUpToNineTenthsOfNyquist) {
    // fs/4 at 45°: every sample is ±1/√2, every crest halfway between two.
    const auto quarter = fadedTone(fs48 / 4.0, 1.0, 45.0);
    ASSERT_NEAR(samplePeak(quarter), std::sqrt(0.5), 1e-7);
    EXPECT_NEAR(dB(bandLimitedPeak(quarter)), 0.0, 0.05);

    const double fractions[] = {0.002, 0.05, 0.13, 0.21, 0.29, 0.33, 0.38, 0.42, 0.445, 0.45};
    for (int i = 0; i < 10; ++i)
        EXPECT_NEAR(dB(bandLimitedPeak(fadedTone(fractions[i] * fs48, 0.5, 37.0 * i))), dB(0.5), 0.05) << fractions[i];
}

TEST(BandLimitedPeak, ReadsCrestsThatFallBetweenTheFourTimesPoints) {
    // At 0.4 fs and 72°, every crest lies 1/8 sample from a sample and from a 4× point.
    const auto x = fadedTone(0.4 * fs48, 1.0, 72.0);
    ASSERT_LT(dB(LoudnessEngine::channelTruePeak(x)), -0.15) << "the tone no longer hides its crests";
    EXPECT_NEAR(dB(bandLimitedPeak(x)), 0.0, 0.05);
}

TEST(BandLimitedPeak, IsolatedSamplesAndSilence) {
    EXPECT_EQ(bandLimitedPeak(silence(10000)), 1e-12);
    EXPECT_EQ(bandLimitedPeak({}), 1e-12);
    // A lone impulse reconstructs as a sinc, whose crest is the sample itself.
    std::vector<float> x(100, 0.0f);
    x[0] = -1.0f;
    EXPECT_NEAR(bandLimitedPeak(x), 1.0, 1e-12);
    // Two equal samples ending the stream: 2·sinc(1/2) = 4/π halfway between them.
    x[0] = 0.0f;
    x[98] = x[99] = 1.0f;
    EXPECT_NEAR(dB(bandLimitedPeak(x)), dB(4.0 / std::numbers::pi), 0.05);
}

TEST(BandLimitedPeak, BlockSizesDoNotChangeTheReading) {
    const auto x = noise(30000);
    const double whole = bandLimitedPeak(x);
    for (double watch : {0.0, whole / 2.0})
        for (std::size_t block : {std::size_t(1), std::size_t(7), std::size_t(4096), x.size()})
            EXPECT_NEAR(meterPeak(x, watch, block), whole, 1e-6 * whole) << watch << " " << block;
}

TEST(BandLimitedPeak, WatchingFromUnderTheCrestMissesNothing) {
    // Quiet noise and one pair of equal samples, whose crest (4/π of them) only the 4× reading
    // can bring to the watch: the samples stay under it.
    for (std::size_t at : {std::size_t(4095), std::size_t(20000), std::size_t(39998)}) {
        auto x = noise(40000, 0.015f);
        x[at] = x[at + 1] = 0.7f;
        const double full = bandLimitedPeak(x), watch = full / dbToAmplitude(1.0);
        ASSERT_NEAR(full, 0.7 * 4.0 / std::numbers::pi, 0.01);
        ASSERT_LT(samplePeak(x), watch);
        EXPECT_NEAR(meterPeak(x, watch, x.size()), full, 1e-12 * full) << at;
        // Watching from above everything leaves the samples alone.
        EXPECT_EQ(meterPeak(x, 2.0 * full, x.size()), samplePeak(x));
    }
}

}  // namespace
}  // namespace velmora
