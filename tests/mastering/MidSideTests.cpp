#include <gtest/gtest.h>

#include "MasteringSignals.h"
#include "mastering/MidSide.h"

using namespace velmora;
using namespace velmora::testsig;

TEST(MidSide, EqualGainsScaleBothSidesAndAVerySmallSideMakesMono) {
    const Channels in = stereoNoise(4000, 0.7);
    Channels x = in;
    // M + S = L and M − S = R, so equal gains are a plain level change.
    applyMidSide(x, 0.02, 0.02);
    for (int c = 0; c < 2; ++c)
        for (std::size_t i = 0; i < 4000; ++i) ASSERT_NEAR(x[c][i], in[c][i] * fromDB(0.02), 1e-7);
    x = in;
    applyMidSide(x, -6.0, -400.0);
    for (std::size_t i = 0; i < 4000; ++i) {
        ASSERT_EQ(x[0][i], x[1][i]);
        ASSERT_NEAR(x[0][i], (double(in[0][i]) + in[1][i]) / 2 * fromDB(-6), 1e-7);
    }
}

TEST(MidSide, GateAt001DBAndOnlyForTwoChannels) {
    const Channels in = stereoNoise(1000, 0.7);
    Channels x = in;
    applyMidSide(x, 0.0, 0.0);
    applyMidSide(x, 0.005, 0.005);
    applyMidSide(x, 0.01, -0.01);
    EXPECT_EQ(x, in);
    applyMidSide(x, 0.0, 0.02);
    EXPECT_NE(x, in);

    Channels mono{in[0]}, six(6, in[0]);
    applyMidSide(mono, 6, -20);
    applyMidSide(six, 6, -20);
    EXPECT_EQ(mono, Channels{in[0]});
    EXPECT_EQ(six, Channels(6, in[0]));
}
