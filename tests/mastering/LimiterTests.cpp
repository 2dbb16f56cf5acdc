#include <gtest/gtest.h>

#include "MasteringSignals.h"
#include "mastering/Limiter.h"

using namespace velmora;
using namespace velmora::testsig;

TEST(Limiter, NeverExceedsTheCeilingAndExtraHeadroomLowersIt) {
    Channels x{noise(96000, 0.9, 8), noise(96000, 0.5, 9)};
    for (double extra : {0.0, 1.0}) {
        float peak = 0;
        for (const auto& ch : limitToCeiling(x, fs48, 4.0, -1.0, extra))
            for (float v : ch) peak = std::max(peak, std::fabs(v));
        EXPECT_LE(peak, float(fromDB(-1.0 - extra)));
        EXPECT_GT(peak, float(fromDB(-2.0 - extra)));
    }
}

TEST(Limiter, DelaysByTheLookAheadAndPassesQuietAudioExactly) {
    for (auto [fs, delay] : {std::pair{48000.0, 72ul}, {44100.0, 66ul}, {100.0, 1ul}}) {
        Channels x(2, std::vector<float>(5000, 0.0f));
        x[1][1000] = 0.1f;
        const Channels y = limitToCeiling(x, fs, 1.0, 0.0);
        for (std::size_t i = 0; i < 5000; ++i) ASSERT_EQ(y[1][i], i == 1000 + delay ? 0.1f : 0.0f) << i;
        EXPECT_EQ(y[0], x[0]);
    }
}

TEST(Limiter, SettlesAtTheAimUnderTheCeilingAndInPlaceMatchesTheCopy) {
    // 6 dB over the aim (0.3 dB under the ceiling) for a second: the gain settles at aim / peak.
    const auto in = steps({{-6, 48000}});
    const Channels y = limitToCeiling(Channels{in}, fs48, fromDB(-0.3 + 6.0 + 6.0), 0.0);
    EXPECT_NEAR(std::fabs(y[0][40000]), fromDB(-0.3), 1e-6);

    Channels n{noise(30000, 0.9, 10), noise(30000, 0.9, 11)};
    const Channels copy = limitToCeiling(n, fs48, 3.0, -2.0, 0.5);
    limitToCeilingInPlace(n, fs48, 3.0, -2.0, 0.5);
    EXPECT_EQ(n, copy);
}

TEST(PlannedReduction, KnownOvershoots) {
    const double c = fromDB(-1.0 - 0.3);
    // A steady level 5 dB over the aim: the smoothed gain reaches the full 5 dB.
    const Channels steady{steps({{-10, 48000}})};
    EXPECT_NEAR(plannedLimiterReduction(steady, fs48, c * fromDB(5) / fromDB(-10), -1.0), 5.0, 1e-5);
    // One frame 6 dB over: a single 1 ms attack step towards the target gain.
    Channels click(1, std::vector<float>(48000, 0.0f));
    click[0][100] = 0.5f;
    const double g = float(fromDB(-6));
    const double s = (1 - g) * std::exp(-1.0 / (fs48 * 0.001)) + g;
    EXPECT_NEAR(plannedLimiterReduction(click, fs48, c * fromDB(6) / 0.5, -1.0), -toDB(s), 1e-6);
    EXPECT_EQ(plannedLimiterReduction(click, fs48, 1.0, -1.0), 0.0);
    EXPECT_EQ(plannedLimiterReduction(Channels{}, fs48, 10.0, -1.0), 0.0);
}
