// Supporting analyses: the centre/LFE swap test, the waveform overview and the display spectrum.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <ostream>
#include <string>
#include <vector>

#include "audio/ChannelLayout.h"
#include "measurement/Diagnostics.h"
#include "measurement/Signals.h"

namespace velmora {
namespace {

using namespace signals;

constexpr double fs48 = 48000.0;

// ---------------------------------------------------------------- centre / LFE swap

struct SwapCase {
    std::string name;
    ChannelOrder order;
    int centre;  // where the order expects C
    int lfe;     // where it expects the LFE
};

void PrintTo(const SwapCase& c, std::ostream* os) { *os << c.name; }

// A file whose C position carries only a 50 Hz tone and whose LFE position carries 1 kHz: the
// two were swapped somewhere upstream. Every other channel carries programme-like 1 kHz.
std::vector<std::vector<float>> swappedFile(int centre, int lfe) {
    const std::size_t frames = framesFor(2.0, fs48);
    std::vector<std::vector<float>> ch(6, sine(1000, -20.0, frames, fs48));
    ch[std::size_t(centre)] = sine(50, -20.0, frames, fs48);
    ch[std::size_t(lfe)] = sine(1000, -20.0, frames, fs48);
    return ch;
}

class CentreLfeSwap : public ::testing::TestWithParam<SwapCase> {};

TEST_P(CentreLfeSwap, SwappedFileWarns) {
    const auto& c = GetParam();
    const auto energies = channelEnergies(swappedFile(c.centre, c.lfe), fs48);
    ASSERT_EQ(energies.size(), 6u);
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(energies[std::size_t(i)].index, i);
        EXPECT_NEAR(energies[std::size_t(i)].totalMS, 0.005, 1e-4) << "a -20 dBFS sine has mean square 0.005";
    }
    const auto w = detectInversion(energies, c.order);
    ASSERT_TRUE(w.has_value());
    EXPECT_EQ(w->suspectedCenterIndex, c.centre);
    EXPECT_EQ(w->suspectedLFEIndex, c.lfe);
    EXPECT_GT(w->centerSubRatio, 0.9);  // 50 Hz passes a 120 Hz low-pass
    EXPECT_LT(w->lfeSubRatio, 0.05);    // 1 kHz does not
    EXPECT_FALSE(w->text().empty());
}

TEST_P(CentreLfeSwap, CorrectFileDoesNotWarn) {
    const auto& c = GetParam();
    auto ch = swappedFile(c.centre, c.lfe);
    std::swap(ch[std::size_t(c.centre)], ch[std::size_t(c.lfe)]);
    EXPECT_FALSE(detectInversion(channelEnergies(ch, fs48), c.order).has_value());
}

TEST_P(CentreLfeSwap, StereoNeverWarns) {
    const std::vector<std::vector<float>> ch{sine(50, -20.0, 48000, fs48), sine(1000, -20.0, 48000, fs48)};
    EXPECT_FALSE(detectInversion(channelEnergies(ch, fs48), GetParam().order).has_value());
    const std::vector<std::vector<float>> swapped{ch[1], ch[0]};
    EXPECT_FALSE(detectInversion(channelEnergies(swapped, fs48), GetParam().order).has_value());
}

INSTANTIATE_TEST_SUITE_P(Orders, CentreLfeSwap,
                         ::testing::Values(SwapCase{"smpte", ChannelOrder::smpte, 2, 3},
                                           SwapCase{"film", ChannelOrder::film, 1, 5},
                                           SwapCase{"itu", ChannelOrder::itu, 4, 5},
                                           SwapCase{"aac", ChannelOrder::aac, 0, 5}),
                         [](const auto& info) { return info.param.name; });

TEST(ChannelEnergies, SubShareFollowsFrequency) {
    const std::vector<std::vector<float>> ch{sine(40, -10.0, 96000, fs48), sine(2000, -10.0, 96000, fs48),
                                             silence(96000)};
    const auto e = channelEnergies(ch, fs48);
    ASSERT_EQ(e.size(), 3u);
    EXPECT_NEAR(e[0].subMS / e[0].totalMS, 1.0, 0.1);
    EXPECT_LT(e[1].subMS / e[1].totalMS, 0.01);
    EXPECT_EQ(e[2].totalMS, 0.0);
    EXPECT_EQ(e[2].subMS, 0.0);
}

// ---------------------------------------------------------------- waveform overview

TEST(WaveformPeaks, ShortFileKeepsEverySample) {
    Noise noise(3);
    std::vector<float> x(1000);
    for (auto& v : x) v = float(noise.next());
    const auto p = waveformPeaks({x});
    ASSERT_EQ(p.size(), 1024u);
    for (std::size_t i = 0; i < 1000; ++i) EXPECT_EQ(p[i], std::abs(x[i])) << "point " << i;
    for (std::size_t i = 1000; i < 1024; ++i) EXPECT_EQ(p[i], 0.0f) << "point " << i;
}

TEST(WaveformPeaks, BucketsHoldTheirLargestMagnitude) {
    std::vector<float> x(4096, 0.1f);
    x[5] = -0.9f;     // first bucket of four
    x[4095] = 0.7f;   // last bucket
    const auto p = waveformPeaks({x}, 1024);
    ASSERT_EQ(p.size(), 1024u);
    EXPECT_FLOAT_EQ(p[1], 0.9f);
    EXPECT_FLOAT_EQ(p[1023], 0.7f);
    EXPECT_FLOAT_EQ(p[500], 0.1f);
}

TEST(WaveformPeaks, LoudestChannelShows) {
    std::vector<float> quiet(1000, 0.1f), loud(1000, -0.6f);
    const auto p = waveformPeaks({quiet, loud});
    ASSERT_EQ(p.size(), 1024u);
    EXPECT_FLOAT_EQ(p[10], 0.6f);
}

// ---------------------------------------------------------------- display spectrum

TEST(Spectrum, NeedsOneFullTransform) {
    EXPECT_TRUE(spectrum({std::vector<float>(4095, 0.1f)}).empty());
    const auto s = spectrum({sine(1000, -20.0, 4096, fs48)});
    ASSERT_EQ(s.size(), 256u);
    for (float v : s) {
        EXPECT_GE(v, 0.0f);
        EXPECT_LE(v, 1.0f);
    }
}

// Band edges spaced evenly in log frequency between lowestHz and highestHz, as a display
// spectrum is read.
int bandOf(double hz, int bands = 256, double lo = 20.0, double hi = 20000.0) {
    return int(std::floor(bands * std::log(hz / lo) / std::log(hi / lo)));
}

class SpectrumPeak : public ::testing::TestWithParam<double> {};

TEST_P(SpectrumPeak, ToneLandsInItsBand) {
    const double hz = GetParam();
    const auto s = spectrum({sine(hz, -6.0, framesFor(1.0, fs48), fs48)});
    ASSERT_EQ(s.size(), 256u);
    const int peak = int(std::max_element(s.begin(), s.end()) - s.begin());
    EXPECT_NEAR(peak, bandOf(hz), 1) << hz << " Hz";
}

INSTANTIATE_TEST_SUITE_P(Tones, SpectrumPeak, ::testing::Values(1000.0, 5000.0, 12000.0),
                         [](const auto& info) { return std::to_string(int(info.param)) + "Hz"; });

}  // namespace
}  // namespace velmora
