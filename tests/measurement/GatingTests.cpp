// Block energies, gates and the edges of measurability, worked out by hand. Gate boundaries are
// built from powers of two so the block sits on the gate exactly, whichever domain (energy or
// dB) the comparison is made in.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "measurement/LoudnessEngine.h"
#include "measurement/Signals.h"

namespace velmora {
namespace {

using namespace signals;

constexpr double fs48 = 48000.0;
constexpr double minusInf = -std::numeric_limits<double>::infinity();
const std::vector<double> mono{1.0};
const std::vector<double> stereo{1.0, 1.0};

double loudnessOf(double meanSquare) { return LoudnessEngine::loudnessOffset + 10.0 * std::log10(meanSquare); }

BlockEnergies monoBlocks(const std::vector<double>& lufs) {
    BlockEnergies b(1);
    for (double l : lufs) b[0].push_back(meanSquareForLoudness(l));
    return b;
}

// ---------------------------------------------------------------- block energies

TEST(BlockMeanSquares, ConstantSignal) {
    const std::vector<float> x(10, 0.5f);
    const auto b = LoudnessEngine::blockMeanSquares(x, 4, 2);
    ASSERT_EQ(b.size(), 4u);  // blocks start at 0, 2, 4, 6
    for (double v : b) EXPECT_DOUBLE_EQ(v, 0.25);
}

TEST(BlockMeanSquares, RampBlocksAreTheirOwnMeans) {
    const std::vector<float> x{0, 1, 2, 3, 4, 5, 6, 7};
    const auto b = LoudnessEngine::blockMeanSquares(x, 4, 2);
    ASSERT_EQ(b.size(), 3u);
    EXPECT_DOUBLE_EQ(b[0], (0 + 1 + 4 + 9) / 4.0);
    EXPECT_DOUBLE_EQ(b[1], (4 + 9 + 16 + 25) / 4.0);
    EXPECT_DOUBLE_EQ(b[2], (16 + 25 + 36 + 49) / 4.0);
}

TEST(BlockMeanSquares, NoPartialBlock) {
    EXPECT_EQ(LoudnessEngine::blockMeanSquares(std::vector<float>(19200, 0.1f), 19200, 4800).size(), 1u);
    EXPECT_EQ(LoudnessEngine::blockMeanSquares(std::vector<float>(19199, 0.1f), 19200, 4800).size(), 0u);
    EXPECT_EQ(LoudnessEngine::blockMeanSquares(std::vector<float>(19200 + 4799, 0.1f), 19200, 4800).size(), 1u);
    EXPECT_EQ(LoudnessEngine::blockMeanSquares(std::vector<float>(19200 + 4800, 0.1f), 19200, 4800).size(), 2u);
}

TEST(BlockSizes, FollowTheRate) {
    EXPECT_EQ(LoudnessEngine::momentaryBlockFrames(48000), 19200u);
    EXPECT_EQ(LoudnessEngine::shortTermBlockFrames(48000), 144000u);
    EXPECT_EQ(LoudnessEngine::hopFrames(48000), 4800u);
    EXPECT_EQ(LoudnessEngine::momentaryBlockFrames(44100), 17640u);
    EXPECT_EQ(LoudnessEngine::hopFrames(44100), 4410u);
    // 0.4 · 22050 = 8820; 0.1 · 11025 = 1102.5 rounds up.
    EXPECT_EQ(LoudnessEngine::momentaryBlockFrames(22050), 8820u);
    EXPECT_EQ(LoudnessEngine::hopFrames(11025), 1103u);
}

// ---------------------------------------------------------------- weighted loudness

TEST(WeightedLoudness, SumsWeightedChannelEnergies) {
    const std::vector<double> z{0.01, 0.002};
    const std::vector<double> w{1.0, 1.41};
    EXPECT_NEAR(LoudnessEngine::weightedLoudness(z, w), loudnessOf(0.01 + 1.41 * 0.002), 1e-12);
}

TEST(WeightedLoudness, ZeroEnergyIsMinusInfinity) {
    EXPECT_EQ(LoudnessEngine::weightedLoudness(std::vector<double>{0.0, 0.0}, stereo), minusInf);
    // A weighted-out channel contributes nothing however loud.
    EXPECT_EQ(LoudnessEngine::weightedLoudness(std::vector<double>{0.0, 0.5}, std::vector<double>{1.0, 0.0}),
              minusInf);
}

TEST(MaxBlockLoudness, LoudestBlock) {
    EXPECT_NEAR(LoudnessEngine::maxBlockLoudness(monoBlocks({-30, -20, -25}), mono), -20.0, 1e-9);
    EXPECT_EQ(LoudnessEngine::maxBlockLoudness(BlockEnergies(1), mono), minusInf);
}

// ---------------------------------------------------------------- gates

TEST(IntegratedGates, BlockExactlyAtAbsoluteGatePasses) {
    const double z = meanSquareForLoudness(LoudnessEngine::absoluteGateLUFS);
    ASSERT_EQ(loudnessOf(z), -70.0) << "construction no longer lands on the gate";
    const BlockEnergies b{{z}};
    EXPECT_NEAR(LoudnessEngine::integratedLoudness(b, mono), -70.0, 1e-9);
}

TEST(IntegratedGates, BlockJustUnderAbsoluteGateFails) {
    const BlockEnergies b{{meanSquareForLoudness(-70.001)}};
    EXPECT_EQ(LoudnessEngine::integratedLoudness(b, mono), minusInf);
}

TEST(IntegratedGates, BlockExactlyAtRelativeGateIsIncluded) {
    // zA = 19·zB puts zB exactly 10 dB under the mean (zA + zB) / 2 = 10·zB.
    const double zB = std::ldexp(1.0, -10);
    const double zA = 19.0 * zB;
    const double mean = (zA + zB) / 2.0;
    ASSERT_EQ(loudnessOf(zB), loudnessOf(mean) - LoudnessEngine::relativeGateLU);
    ASSERT_EQ(zB, mean * 0.1);
    const BlockEnergies b{{zA, zB}};
    EXPECT_NEAR(LoudnessEngine::integratedLoudness(b, mono), loudnessOf(mean), 1e-9);  // -20.794
}

TEST(IntegratedGates, BlockUnderRelativeGateIsDropped) {
    const double zB = std::ldexp(0.999, -10);
    const double zA = 19.0 * std::ldexp(1.0, -10);
    const BlockEnergies b{{zA, zB}};
    EXPECT_NEAR(LoudnessEngine::integratedLoudness(b, mono), loudnessOf(zA), 1e-9);
}

TEST(IntegratedGates, RelativeGateComesFromBlocksOverAbsoluteGate) {
    // Over -70 only -30 and -44 remain: the gate is -42.8 and drops -44. Were the -90 blocks
    // counted, the gate would fall to -48.9 and keep it.
    const auto b = monoBlocks({-30, -44, -90, -90, -90, -90, -90, -90});
    const double expected = loudnessOf(meanSquareForLoudness(-30));
    EXPECT_NEAR(LoudnessEngine::integratedLoudness(b, mono), expected, 1e-9);
}

TEST(IntegratedGates, NothingMeasurable) {
    EXPECT_EQ(LoudnessEngine::integratedLoudness(BlockEnergies(1), mono), minusInf);
    EXPECT_EQ(LoudnessEngine::integratedLoudness(monoBlocks({-80, -75}), mono), minusInf);
    EXPECT_EQ(LoudnessEngine::integratedLoudness(BlockEnergies{{0.0, 0.0}}, mono), minusInf);
}

TEST(MaskedIntegrated, UsesOnlyFlaggedBlocks) {
    const auto b = monoBlocks({-20, -30, -25});
    const double expected = loudnessOf((meanSquareForLoudness(-20) + meanSquareForLoudness(-25)) / 2.0);
    EXPECT_NEAR(LoudnessEngine::maskedIntegratedLoudness(b, mono, {true, false, true}), expected, 1e-9);
    EXPECT_GT(std::abs(expected - LoudnessEngine::integratedLoudness(b, mono)), 0.5);
}

TEST(MaskedIntegrated, RelativeGateFromFlaggedBlocksOnly) {
    // Flagged -35 and -33 gate each other at -43.9; the unflagged -20 would raise it past -35.
    const auto b = monoBlocks({-20, -35, -33});
    const double expected = loudnessOf((meanSquareForLoudness(-35) + meanSquareForLoudness(-33)) / 2.0);
    EXPECT_NEAR(LoudnessEngine::maskedIntegratedLoudness(b, mono, {false, true, true}), expected, 1e-9);
}

TEST(MaskedIntegrated, AllFlagsMatchUnmasked) {
    const auto b = monoBlocks({-20, -36, -25, -80, -31});
    EXPECT_NEAR(LoudnessEngine::maskedIntegratedLoudness(b, mono, std::vector<bool>(5, true)),
                LoudnessEngine::integratedLoudness(b, mono), 1e-12);
}

TEST(MaskedIntegrated, NoFlagIsMinusInfinity) {
    EXPECT_EQ(LoudnessEngine::maskedIntegratedLoudness(monoBlocks({-20, -25}), mono, {false, false}), minusInf);
}

// ---------------------------------------------------------------- edges of measurability

TEST(MeasureEdges, ExactlyOneMomentaryBlock) {
    const auto x = sine(997, -20.0, 19200, fs48);
    const auto r = LoudnessEngine::measure(leftOnly(x), stereo, fs48);
    ASSERT_TRUE(std::isfinite(r.integratedLUFS));
    EXPECT_NEAR(r.integratedLUFS, r.momentaryMax, 1e-9);
    EXPECT_NEAR(r.integratedLUFS, -23.0, 0.1);
    EXPECT_FALSE(r.loudnessRange.has_value());
    EXPECT_EQ(r.shortTermMax, minusInf);
    EXPECT_NEAR(r.truePeakDB, -20.0, 0.2);
}

TEST(MeasureEdges, ShorterThanOneBlockMeasuresNothing) {
    const auto x = sine(997, -20.0, 18720, fs48);  // 0.39 s
    const auto r = LoudnessEngine::measure(leftOnly(x), stereo, fs48);
    EXPECT_EQ(r.integratedLUFS, minusInf);
    EXPECT_EQ(r.momentaryMax, minusInf);
    EXPECT_EQ(r.shortTermMax, minusInf);
    EXPECT_FALSE(r.loudnessRange.has_value());
    EXPECT_NEAR(r.truePeakDB, -20.0, 0.2);
}

TEST(MeasureEdges, DigitalSilence) {
    const auto r = LoudnessEngine::measure(stereoBoth(silence(framesFor(5.0, fs48))), stereo, fs48);
    EXPECT_EQ(r.integratedLUFS, minusInf);
    EXPECT_EQ(r.momentaryMax, minusInf);
    EXPECT_EQ(r.shortTermMax, minusInf);
    EXPECT_FALSE(r.loudnessRange.has_value());
    EXPECT_EQ(r.truePeakDB, -240.0);
}

TEST(MeasureEdges, NoFrames) {
    const auto r = LoudnessEngine::measure(Channels{{}, {}}, stereo, fs48);
    EXPECT_EQ(r.integratedLUFS, minusInf);
    EXPECT_EQ(r.momentaryMax, minusInf);
    EXPECT_FALSE(r.loudnessRange.has_value());
    EXPECT_EQ(r.truePeakDB, -240.0);
}

TEST(MeasureEdges, LfeOnlyHasNoLoudnessButAPeak) {
    const std::vector<double> w{1, 1, 1, 0, 1.41, 1.41};
    Channels ch(6, silence(framesFor(4.0, fs48)));
    ch[3] = sine(50, -10.0, framesFor(4.0, fs48), fs48);
    const auto r = LoudnessEngine::measure(ch, w, fs48);
    EXPECT_EQ(r.integratedLUFS, minusInf);
    EXPECT_EQ(r.momentaryMax, minusInf);
    EXPECT_EQ(r.shortTermMax, minusInf);
    EXPECT_NEAR(r.truePeakDB, -10.0, 0.2);
}

TEST(MeasureEdges, ProgressEndsAtOne) {
    std::vector<double> seen;
    const auto x = sine(997, -20.0, framesFor(4.0, fs48), fs48);
    LoudnessEngine::measure(leftOnly(x), stereo, fs48, [&](double f) { seen.push_back(f); });
    ASSERT_FALSE(seen.empty());
    for (double f : seen) {
        EXPECT_GE(f, 0.0);
        EXPECT_LE(f, 1.0);
    }
    EXPECT_DOUBLE_EQ(seen.back(), 1.0);
}

}  // namespace
}  // namespace velmora
