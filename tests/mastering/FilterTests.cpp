#include <gtest/gtest.h>

#include <tuple>

#include "MasteringSignals.h"

using namespace velmora;
using namespace velmora::testsig;

TEST(FilterDesign, PeakingAndShelvesMatchTheirAnalyticGains) {
    for (double fs : {44100.0, 48000.0})
        for (double f : {100.0, 1000.0, 10000.0})
            for (double g : {-12.0, -3.0, 6.0, 15.0}) {
                for (double q : {0.5, 1.0, 4.0}) {
                    const Biquad b = designPeaking(fs, f, g, q);
                    EXPECT_NEAR(responseDB(b, f, fs), g, 1e-9);
                    EXPECT_NEAR(responseDB(b, 0.0, fs), 0.0, 1e-9);
                }
                // Shelves: full gain at the band's edge (DC, Nyquist), half of it at the corner.
                for (auto [b, inBand, outside] : {std::tuple{designLowShelf(fs, f, g), 0.0, fs / 2},
                                                  std::tuple{designHighShelf(fs, f, g), fs / 2, 0.0}}) {
                    EXPECT_NEAR(responseDB(b, inBand, fs), g, 1e-9);
                    EXPECT_NEAR(responseDB(b, f, fs), g / 2, 1e-9);
                    EXPECT_NEAR(responseDB(b, outside, fs), 0.0, 1e-9);
                }
            }
}

TEST(FilterDesign, HighPassUsesQ07071AndZeroGainIsUnity) {
    // |H| at the cutoff is Q itself: 20·log10(0.7071), 0.0003 dB off a √2 design.
    for (double f : {20.0, 80.0, 250.0}) {
        EXPECT_NEAR(responseDB(designHighPass(fs48, f), f, fs48), toDB(0.7071), 1e-7);
        EXPECT_NEAR(responseDB(designHighPass(fs48, f), fs48 / 2, fs48), 0.0, 1e-9);
    }
    const Biquad hp = designHighPass(fs48, 80.0);
    EXPECT_EQ(hp.b0, hp.b2);
    EXPECT_EQ(hp.b1, -2.0 * hp.b0);
    for (const Biquad& b : {designPeaking(fs48, 1000, 0, 0.7), designLowShelf(fs48, 120, 0),
                            designHighShelf(fs48, 8000, 0)}) {
        EXPECT_NEAR(b.b0, 1.0, 1e-15);
        EXPECT_NEAR(b.b1, b.a1, 1e-15);
        EXPECT_NEAR(b.b2, b.a2, 1e-15);
    }
}

TEST(EqualiserLists, BandsGateAt005DBInFixedOrder) {
    MasterParams p;
    p.eqOn = p.teqOn = true;
    p.lsGain = p.b1Gain = p.b2Gain = p.hsGain = p.tLsGain = p.tMidGain = p.tHsGain = 0.05;
    EXPECT_TRUE(buildFiveBandEQ(p, fs48).empty());
    EXPECT_TRUE(buildTonalEQ(p, fs48).empty());
    p.lsGain = p.b1Gain = p.b2Gain = p.hsGain = p.tHsGain = -0.0501;
    p.b1Q = 2.0;
    p.hpfOn = true;  // the tonal list has no high-pass
    EXPECT_EQ(buildFiveBandEQ(p, fs48),
              (std::vector<Biquad>{designHighPass(fs48, 40), designLowShelf(fs48, 120, -0.0501),
                                   designPeaking(fs48, 400, -0.0501, 2.0), designPeaking(fs48, 3000, -0.0501, 1.0),
                                   designHighShelf(fs48, 8000, -0.0501)}));
    EXPECT_EQ(buildTonalEQ(p, fs48), std::vector<Biquad>{designHighShelf(fs48, 10000, -0.0501)});
    p.eqOn = p.teqOn = false;
    EXPECT_TRUE(buildFiveBandEQ(p, fs48).empty() && buildTonalEQ(p, fs48).empty());
}

TEST(EqualiserApply, MatchesADirectFormReferenceAndAnEmptyListChangesNothing) {
    // Direct form I in double on the same input: the transposed form must compute the same filter.
    const auto in = noise(20000, 0.8, 3);
    const Biquad b = designPeaking(fs48, 2000, 9, 1.5);
    std::vector<float> y = in;
    applyBiquad(y, b);
    double x1 = 0, x2 = 0, y1 = 0, y2 = 0, worst = 0;
    for (std::size_t i = 0; i < in.size(); ++i) {
        const double v = b.b0 * in[i] + b.b1 * x1 + b.b2 * x2 - b.a1 * y1 - b.a2 * y2;
        x2 = x1, x1 = in[i], y2 = y1, y1 = v;
        worst = std::max(worst, std::fabs(v - y[i]));
    }
    EXPECT_LT(worst, 1e-5);

    Channels x{in, in};
    applyEQ(x, {});
    EXPECT_EQ(x, (Channels{in, in}));
}
