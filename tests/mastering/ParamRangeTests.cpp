// The ranges every chain value is held to, and the filters kept under Nyquist at every rate a
// source can have.
#include <gtest/gtest.h>

#include <complex>

#include "MasteringSignals.h"
#include "mastering/Compressors.h"
#include "mastering/Equalisers.h"
#include "mastering/ParamRanges.h"

using namespace velmora;
using namespace velmora::testsig;

namespace {

constexpr double rates[] = {8000, 11025, 16000, 22050, 32000, 44100, 48000, 88200, 96000, 176400, 192000, 352800, 384000};

// Stable: both poles inside the unit circle (the stability triangle of a second-order section).
bool stable(const Biquad& b) {
    return std::isfinite(b.b0) && std::isfinite(b.b1) && std::isfinite(b.b2) && std::isfinite(b.a1) &&
           std::isfinite(b.a2) && std::fabs(b.a2) < 1.0 && std::fabs(b.a1) < 1.0 + b.a2;
}

// Every field at its low or its high end, every switch on.
MasterParams atEnds(bool high) {
    MasterParams p;
    p.eqOn = p.hpfOn = p.teqOn = true;
    for (const auto& f : masterParamsFields)
        if (auto* member = std::get_if<double MasterParams::*>(&f.member)) {
            const ParamRange r = *rangeOf(*member);
            p.**member = high ? r.high : r.low;
        }
    return p;
}

}  // namespace

TEST(ChainRanges, EveryDesignStaysStableAndFiniteFrom8kTo384k) {
    for (double fs : rates)
        for (bool high : {false, true})
            for (double gain : {-12.0, 12.0}) {
                SCOPED_TRACE(std::to_string(fs) + (high ? " high ends" : " low ends") + " gain " + std::to_string(gain));
                MasterParams p = atEnds(high);
                p.lsGain = p.b1Gain = p.b2Gain = p.hsGain = p.tLsGain = p.tMidGain = p.tHsGain = gain;
                const auto five = buildFiveBandEQ(p, fs), tonal = buildTonalEQ(p, fs);
                ASSERT_EQ(five.size(), 5u);
                ASSERT_EQ(tonal.size(), 3u);
                for (const Biquad& b : buildLiveCascade(p, fs).sections) EXPECT_TRUE(stable(b));
                Channels x{sine(std::size_t(fs / 4), 997.0, 0.25, fs)};
                applyEQ(x, five);
                applyEQ(x, tonal);
                float peak = 0;
                for (float v : x[0]) {
                    ASSERT_TRUE(std::isfinite(v));
                    peak = std::max(peak, std::fabs(v));
                }
                EXPECT_LT(peak, 0.25 * fromDB(7 * 12.0)) << "no band rings beyond its own gain";
            }
}

TEST(ChainRanges, FrequenciesUnderTheGuardAreDesignedAsAsked) {
    // 10 kHz at 48 kHz is under 0.45 × rate: exactly the cookbook's section. At 16 kHz it is
    // above Nyquist and lands on 7.2 kHz instead.
    MasterParams p;
    p.teqOn = true;
    p.tHsGain = 6;
    EXPECT_EQ(buildTonalEQ(p, fs48), std::vector<Biquad>{designHighShelf(fs48, 10000, 6)});
    EXPECT_EQ(buildTonalEQ(p, 16000), std::vector<Biquad>{designHighShelf(16000, 7200, 6)});
    EXPECT_NEAR(responseDB(buildTonalEQ(p, 16000)[0], 7999, 16000), 6.0, 0.1) << "the shelf still lifts the top";
    // Below every range (a hand-written -40 Hz, a Q of 0): no section turns over.
    p.eqOn = p.hpfOn = true;
    p.hpfFreq = -40;
    p.b1Gain = 6;
    p.b1Q = 0;
    for (const Biquad& b : buildFiveBandEQ(p, fs48)) EXPECT_TRUE(stable(b));
}

TEST(ChainRanges, OneTableChecksAndClamps) {
    MasterParams p;
    EXPECT_TRUE(outOfRange(p).empty()) << "the defaults are within every range";
    EXPECT_TRUE(outOfRange(atEnds(false)).empty());
    EXPECT_TRUE(outOfRange(atEnds(true)).empty());
    p.hpfFreq = -40;
    p.compRatio = 0;
    p.b1Q = std::nan("");
    const auto wrong = outOfRange(p);
    ASSERT_EQ(wrong.size(), 3u);
    EXPECT_EQ(describe(wrong[0]), "hpfFreq = -40 hors de sa plage (20 à 300)");
    EXPECT_EQ(wrong[1].key, "b1Q");
    EXPECT_EQ(describe(wrong[2]), "compRatio = 0 hors de sa plage (1 à 10)");
    const MasterParams clamped = clampedToRanges(p);
    EXPECT_TRUE(outOfRange(clamped).empty());
    EXPECT_EQ(clamped.hpfFreq, 20.0);
    EXPECT_EQ(clamped.compRatio, 1.0);
    EXPECT_EQ(clamped.b1Q, 0.3);
    EXPECT_EQ(rangeOf("tHsFreq")->high, 18000.0);
    EXPECT_FALSE(rangeOf("eqOn")) << "switches have no range";
}

TEST(ChainRanges, ARatioOfZeroCompressesNothingInsteadOfDividingByZero) {
    MasterParams p;
    p.compOn = true;
    p.compRatio = 0;
    p.compThreshold = -30;
    Channels x = stereoNoise(48000, 0.5);
    const Channels before = x;
    const double reduction = busCompress(x, fs48, p);
    EXPECT_EQ(reduction, 0.0);
    EXPECT_EQ(x, before);
}
