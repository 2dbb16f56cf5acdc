// Gates, masked integration, the range percentiles and the edges of measurability, worked out
// by hand. Gate boundaries are built from powers of two so the block sits on the gate exactly,
// whichever domain (energy or dB) the comparison is made in.
#include <gtest/gtest.h>

#include <cmath>
#include <utility>
#include <vector>

#include "measurement/LoudnessEngine.h"
#include "measurement/Signals.h"

namespace velmora {
namespace {

using namespace signals;

double loudnessOf(double meanSquare) { return LoudnessEngine::loudnessOffset + 10.0 * std::log10(meanSquare); }

BlockEnergies monoBlocks(const std::vector<double>& lufs) {
    BlockEnergies b(1);
    for (double l : lufs) b[0].push_back(meanSquareForLoudness(l));
    return b;
}

TEST(IntegratedGates, BlockExactlyOnEitherGateIsKeptAndJustUnderIsNot) {
    const double z = meanSquareForLoudness(LoudnessEngine::absoluteGateLUFS);
    ASSERT_EQ(loudnessOf(z), -70.0) << "construction no longer lands on the gate";
    EXPECT_NEAR(LoudnessEngine::integratedLoudness({{z}}, mono), -70.0, 1e-9);
    EXPECT_EQ(LoudnessEngine::integratedLoudness(monoBlocks({-70.001}), mono), minusInf);

    // zA = 19·zB puts zB exactly 10 dB under the mean (zA + zB) / 2 = 10·zB.
    const double zB = std::ldexp(1.0, -10), zA = 19.0 * zB, mean = (zA + zB) / 2.0;
    ASSERT_EQ(loudnessOf(zB), loudnessOf(mean) - LoudnessEngine::relativeGateLU);
    EXPECT_NEAR(LoudnessEngine::integratedLoudness({{zA, zB}}, mono), loudnessOf(mean), 1e-9);
    EXPECT_NEAR(LoudnessEngine::integratedLoudness({{zA, std::ldexp(0.999, -10)}}, mono), loudnessOf(zA), 1e-9);
}

TEST(MaskedIntegrated, UsesOnlyFlaggedBlocks) {
    const auto b = monoBlocks({-20, -30, -25});
    const double expected = loudnessOf((meanSquareForLoudness(-20) + meanSquareForLoudness(-25)) / 2.0);
    EXPECT_NEAR(LoudnessEngine::maskedIntegratedLoudness(b, mono, {true, false, true}), expected, 1e-9);
    // Flagged -35 and -33 gate each other at -43.9; the unflagged -20 would raise the gate past -35.
    const double quiet = loudnessOf((meanSquareForLoudness(-35) + meanSquareForLoudness(-33)) / 2.0);
    EXPECT_NEAR(LoudnessEngine::maskedIntegratedLoudness(monoBlocks({-20, -35, -33}), mono, {false, true, true}),
                quiet, 1e-9);
}

TEST(LoudnessRange, TwoBlocksInterpolateBetweenThem) {
    // Percentiles at 0.1 and 0.95 of the way from -30 to -20: -29 and -20.5.
    EXPECT_NEAR(LoudnessEngine::computeLoudnessRange(monoBlocks({-30, -20}), mono).value_or(0), 8.5, 1e-9);
    // The mean over -70 is -24.76: -45 is under the relative gate, -80 under the absolute one.
    EXPECT_NEAR(LoudnessEngine::computeLoudnessRange(monoBlocks({-45, -30, -80, -20}), mono).value_or(0), 8.5, 1e-9);
}

TEST(MeasureEdges, OneMomentaryBlockIsMeasuredAndLessIsNot) {
    const auto one = LoudnessEngine::measure(leftOnly(sine(997, -20.0, 19200, fs48)), stereo, fs48);
    ASSERT_TRUE(std::isfinite(one.integratedLUFS));
    EXPECT_NEAR(one.integratedLUFS, one.momentaryMax, 1e-9);
    EXPECT_NEAR(one.integratedLUFS, -23.0, 0.1);
    EXPECT_EQ(one.shortTermMax, minusInf);

    const auto under = LoudnessEngine::measure(leftOnly(sine(997, -20.0, 18720, fs48)), stereo, fs48);  // 0.39 s
    for (double v : {under.integratedLUFS, under.momentaryMax, under.shortTermMax}) EXPECT_EQ(v, minusInf);
    for (const auto& r : {one, under}) {
        EXPECT_FALSE(r.loudnessRange.has_value());
        EXPECT_NEAR(r.truePeakDB, -20.0, 0.2);
    }
}

TEST(MeasureEdges, SilenceAndLfeAloneHaveNoLoudness) {
    const auto silent = LoudnessEngine::measure(stereoBoth(silence(framesFor(5.0, fs48))), stereo, fs48);
    EXPECT_FALSE(silent.loudnessRange.has_value());
    EXPECT_EQ(silent.truePeakDB, -240.0);

    Channels ch(6, silence(framesFor(4.0, fs48)));
    ch[3] = sine(50, -10.0, framesFor(4.0, fs48), fs48);
    const std::vector<double> w{1, 1, 1, 0, 1.41, 1.41};
    const auto lfe = LoudnessEngine::measure(ch, w, fs48);
    EXPECT_NEAR(lfe.truePeakDB, -10.0, 0.2);
    for (const auto& r : {silent, lfe})
        for (double v : {r.integratedLUFS, r.momentaryMax, r.shortTermMax}) EXPECT_EQ(v, minusInf);
}

TEST(WindowedLoudness, Under50msMeasuresNothingAndA400msWindowReadsTheTone) {
    const Channels tone{sine(997, -20.0, framesFor(2.0, fs48), fs48)};
    EXPECT_EQ(LoudnessEngine::windowedLoudness(tone, mono, 48000, 2399, fs48), std::pair(minusInf, minusInf));
    EXPECT_TRUE(std::isfinite(LoudnessEngine::windowedLoudness(tone, mono, 48000, 2400, fs48).first));
    // The filters start from zero state at some point before the window; allow 0.1 for that.
    for (std::size_t end : {19200, 48000, 96000}) {
        const auto [lufs, peak] = LoudnessEngine::windowedLoudness(tone, mono, end, 19200, fs48);
        EXPECT_NEAR(lufs, toneLoudness997(-20.0), 0.1) << "window ending at " << end;
        EXPECT_NEAR(peak, -20.0, 0.01);
    }
}

}  // namespace
}  // namespace velmora
