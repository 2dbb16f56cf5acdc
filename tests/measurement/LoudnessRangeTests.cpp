// Loudness range: EBU Tech 3342 level-step signals (published ±1 LU, aimed at ±0.1) and
// hand-worked block sets whose range follows from the 10th/95th percentile definition.
#include <gtest/gtest.h>

#include <cmath>
#include <ostream>
#include <string>
#include <vector>

#include "measurement/LoudnessEngine.h"
#include "measurement/Signals.h"

namespace velmora {
namespace {

using namespace signals;

constexpr double fs48 = 48000.0;

struct RangeCase {
    std::string name;
    std::vector<Segment> segments;
    double range;
};

void PrintTo(const RangeCase& c, std::ostream* os) { *os << c.name; }

class Tech3342 : public ::testing::TestWithParam<RangeCase> {};

TEST_P(Tech3342, LevelStepsGivePublishedRange) {
    const auto& c = GetParam();
    std::vector<float> x;
    for (const auto& s : c.segments) append(x, toneSequence(1000, {s}, fs48));
    const auto r = LoudnessEngine::measure(stereoBoth(x), std::vector<double>{1.0, 1.0}, fs48);
    ASSERT_TRUE(r.loudnessRange.has_value());
    EXPECT_NEAR(*r.loudnessRange, c.range, 0.1);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Tech3342,
    ::testing::Values(RangeCase{"case1_minus20_minus30", {{-20, 20}, {-30, 20}}, 10.0},
                      RangeCase{"case2_minus20_minus15", {{-20, 20}, {-15, 20}}, 5.0},
                      // -40 lies 17 LU under the programme, inside the -20 LU relative gate.
                      RangeCase{"case3_minus40_minus20", {{-40, 20}, {-20, 20}}, 20.0},
                      // -50 falls under the relative gate and must not widen the range to 30.
                      RangeCase{"case4_fiveSteps", {{-50, 20}, {-35, 20}, {-20, 20}, {-35, 20}, {-50, 20}}, 15.0}),
    [](const auto& info) { return info.param.name; });

// ---------------------------------------------------------------- worked block sets

const std::vector<double> mono{1.0};

BlockEnergies monoBlocks(const std::vector<double>& lufs) {
    BlockEnergies b(1);
    for (double l : lufs) b[0].push_back(meanSquareForLoudness(l));
    return b;
}

TEST(LoudnessRangeWorked, TwoBlocksInterpolateBetweenThem) {
    // Percentiles at 0.1 and 0.95 of the way from -30 to -20: -29 and -20.5.
    const auto lra = LoudnessEngine::computeLoudnessRange(monoBlocks({-30.0, -20.0}), mono);
    ASSERT_TRUE(lra.has_value());
    EXPECT_NEAR(*lra, 8.5, 1e-9);
}

TEST(LoudnessRangeWorked, OrderOfBlocksDoesNotMatter) {
    const auto lra = LoudnessEngine::computeLoudnessRange(monoBlocks({-20.0, -30.0}), mono);
    ASSERT_TRUE(lra.has_value());
    EXPECT_NEAR(*lra, 8.5, 1e-9);
}

TEST(LoudnessRangeWorked, TwentyOneEvenlySpacedBlocks) {
    // -40 … -20 in 1 LU steps: the percentiles fall on blocks 2 and 19, -38 and -21.
    std::vector<double> l;
    for (int i = 0; i <= 20; ++i) l.push_back(-40.0 + i);
    const auto lra = LoudnessEngine::computeLoudnessRange(monoBlocks(l), mono);
    ASSERT_TRUE(lra.has_value());
    EXPECT_NEAR(*lra, 17.0, 1e-9);
}

TEST(LoudnessRangeWorked, BothGatesApply) {
    // Mean of the blocks over -70 is -24.76, so the -45 block is under the -20 LU gate and the
    // -80 block under the absolute one; only -30 and -20 remain.
    const auto lra = LoudnessEngine::computeLoudnessRange(monoBlocks({-45.0, -30.0, -80.0, -20.0}), mono);
    ASSERT_TRUE(lra.has_value());
    EXPECT_NEAR(*lra, 8.5, 1e-9);
}

TEST(LoudnessRangeWorked, ChannelWeightsEnterBlockLoudness) {
    // One block all in the first channel at -30, one all in a 1.41-weighted channel that only
    // reaches -20 once weighted.
    const double zA = meanSquareForLoudness(-30.0);
    const double zB = meanSquareForLoudness(-20.0) / 1.41;
    const BlockEnergies b{{zA, 0.0}, {0.0, zB}};
    const std::vector<double> w{1.0, 1.41};
    const auto lra = LoudnessEngine::computeLoudnessRange(b, w);
    ASSERT_TRUE(lra.has_value());
    EXPECT_NEAR(*lra, 8.5, 1e-9);
}

TEST(LoudnessRangeWorked, NothingToMeasureIsAbsent) {
    EXPECT_FALSE(LoudnessEngine::computeLoudnessRange(BlockEnergies(1), mono).has_value());
    EXPECT_FALSE(LoudnessEngine::computeLoudnessRange(monoBlocks({-75.0, -80.0, -90.0}), mono).has_value());
}

}  // namespace
}  // namespace velmora
