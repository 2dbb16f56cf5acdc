// Where the maxima lie: the start of the loudest 400 ms and 3 s windows, the stretch holding the
// true peak and the first sample of the largest magnitude, so a listener can be taken there.
#include <gtest/gtest.h>

#include "Signals.h"
#include "measurement/LoudnessEngine.h"

namespace velmora {
namespace {

using namespace signals;

// 10 s of a quiet 1 kHz tone at -40 dBFS; a 400 ms burst at -6 dBFS from 6.0 s; one sample of
// 0.9 at 3.0 s, in the right channel only.
Channels programmeWithMaxima() {
    const std::size_t n = framesFor(10.0, fs48);
    Channels c(2, std::vector<float>(n));
    for (std::size_t i = 0; i < n; ++i) {
        const double t = double(i) / fs48;
        const double level = t >= 6.0 && t < 6.4 ? dbToAmplitude(-6) : dbToAmplitude(-40);
        c[0][i] = c[1][i] = float(level * sineSample(1000, fs48, i));
    }
    c[1][framesFor(3.0, fs48)] = 0.9f;
    return c;
}

TEST(MaximaPositions, EachMaximumKnowsWhereItLies) {
    const auto r = LoudnessEngine::measure(programmeWithMaxima(), stereo, fs48);
    ASSERT_TRUE(r.momentaryMaxSeconds);
    EXPECT_NEAR(*r.momentaryMaxSeconds, 6.0, 0.011);  // the burst is the loudest 400 ms
    ASSERT_TRUE(r.shortTermMaxSeconds);
    // Every 3 s window that holds the whole burst is as loud; the first of them is kept.
    EXPECT_GE(*r.shortTermMaxSeconds, 3.4 - 0.011);
    EXPECT_LE(*r.shortTermMaxSeconds, 6.0);
    EXPECT_GE(*r.shortTermMaxSeconds + 3.0, 6.4 - 0.011);
    // The spike is the true and the sample peak.
    ASSERT_TRUE(r.truePeakSeconds);
    EXPECT_LE(*r.truePeakSeconds, 3.0);
    EXPECT_GE(*r.truePeakSeconds, 3.0 - 2048 / fs48);
    ASSERT_TRUE(r.samplePeakSeconds);
    EXPECT_DOUBLE_EQ(*r.samplePeakSeconds, 3.0);
    EXPECT_NEAR(r.samplePeakDB, 20 * std::log10(0.9), 1e-6);
    EXPECT_GE(r.truePeakDB, r.samplePeakDB);
}

TEST(MaximaPositions, TheFirstOfEqualPeaksIsKept) {
    Channels c(1, std::vector<float>(framesFor(4.0, fs48), 0.0f));
    c[0][framesFor(1.0, fs48)] = -0.5f;
    c[0][framesFor(2.5, fs48)] = 0.5f;
    const auto r = LoudnessEngine::measure(c, mono, fs48);
    ASSERT_TRUE(r.samplePeakSeconds);
    EXPECT_DOUBLE_EQ(*r.samplePeakSeconds, 1.0);
    EXPECT_LE(*r.truePeakSeconds, 1.0);
}

TEST(MaximaPositions, SilenceHasNone) {
    const Channels silence(2, std::vector<float>(framesFor(5.0, fs48), 0.0f));
    const auto r = LoudnessEngine::measure(silence, stereo, fs48);
    EXPECT_FALSE(r.momentaryMaxSeconds);
    EXPECT_FALSE(r.shortTermMaxSeconds);
    EXPECT_FALSE(r.truePeakSeconds);
    EXPECT_FALSE(r.samplePeakSeconds);
    EXPECT_EQ(r.samplePeakDB, minusInf);
}

TEST(MaximaPositions, AFileShorterThanAWindowHasNoWindowPosition) {
    Channels c(1, std::vector<float>(framesFor(1.0, fs48)));
    for (std::size_t i = 0; i < c[0].size(); ++i) c[0][i] = float(0.5 * sineSample(1000, fs48, i));
    const auto r = LoudnessEngine::measure(c, mono, fs48);
    EXPECT_TRUE(r.momentaryMaxSeconds);
    EXPECT_FALSE(r.shortTermMaxSeconds);  // no 3 s window in 1 s
    EXPECT_TRUE(r.truePeakSeconds);
}

}  // namespace
}  // namespace velmora
