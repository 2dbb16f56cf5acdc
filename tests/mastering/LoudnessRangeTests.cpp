#include <gtest/gtest.h>

#include "MasteringSignals.h"
#include "mastering/LoudnessRangeReduction.h"
#include "mastering/ProgrammeLoudness.h"

using namespace velmora;
using namespace velmora::testsig;

namespace {

constexpr double fs = 24000.0;  // half rate: the measurements do not care and the suite stays quick

// 8 × 5 s of noise alternating between −12 and −32 dBFS: a range of about 20 LU.
const Channels& programme() {
    static const Channels x = [] {
        Channels out = stereoNoise(8 * 5 * std::size_t(fs), 1.0);
        for (auto& ch : out)
            for (std::size_t i = 0; i < ch.size(); ++i) ch[i] *= float(i / std::size_t(5 * fs) % 2 ? 0.025 : 0.25);
        return out;
    }();
    return x;
}

MasterParams lra(double target, bool iterative) {
    MasterParams p;
    p.lraOn = true, p.lraTarget = target, p.lraIterative = iterative;
    return p;
}

ProgrammeLoudness measured(const Channels& x) { return measureProgramme(x, fs, stereoWeights); }

}  // namespace

TEST(ProgrammeMeasurement, AgreesWithTheFullMeasurement) {
    for (const std::vector<double>& w : {stereoWeights, std::vector<double>{1.0, 0.0}}) {
        const auto full = LoudnessEngine::measure(programme(), w, fs);
        const auto quick = measureProgramme(programme(), fs, w);
        EXPECT_NEAR(quick.integratedLUFS, full.integratedLUFS, 1e-9);
        ASSERT_TRUE(quick.loudnessRange && full.loudnessRange);
        EXPECT_NEAR(*quick.loudnessRange, *full.loudnessRange, 1e-9);
        EXPECT_NEAR(*quick.loudnessRange, 20.0, 1.0);
    }
}

TEST(EnvelopeCompressor, ConstantLevelFollowsTheOnePoleFromTheReference) {
    // Constant peak 0.5 with a reference of −20 LUFS: env_n = A + a^(n+1)·(ref − A), and the
    // gain is (env/ref)^(k − 1).
    const double A = 0.5, ref = std::pow(10.0, (-20 + 0.691) / 20), a = std::exp(-1.0 / (fs * 0.15)), k = 0.4;
    const auto in = steps({{toDB(A), 48000}});
    const Channels out = lraEnvelopeCompress(Channels{in, std::vector<float>(in.size())}, fs, k, -20.0);
    for (double n : {0.0, 100.0, 3600.0, 47999.0})
        EXPECT_NEAR(out[0][n] / in[n], std::pow((A + std::pow(a, n + 1) * (ref - A)) / ref, k - 1), 1e-6) << n;
}

TEST(LraReduction, NothingWhenOffOrWithinHalfALUAboveTheTarget) {
    MasterParams off = lra(8, true);
    off.lraOn = false;
    EXPECT_EQ(reduceLRA(programme(), fs, off, stereoWeights), programme());
    const double L = *measured(programme()).loudnessRange;
    double target = L - lraTolerance;
    while (target + lraTolerance < L) target = std::nextafter(target, 1e9);
    ASSERT_EQ(target + lraTolerance, L);
    EXPECT_EQ(reduceLRA(programme(), fs, lra(target, true), stereoWeights), programme());
}

TEST(LraReduction, FirstPassUsesTargetOverRangeFlooredAt03) {
    const auto m = measured(programme());
    const double L = *m.loudnessRange;
    EXPECT_EQ(reduceLRA(programme(), fs, lra(L - 0.51, false), stereoWeights),
              lraEnvelopeCompress(programme(), fs, (L - 0.51) / L, m.integratedLUFS));
    EXPECT_EQ(reduceLRA(programme(), fs, lra(1.0, false), stereoWeights),
              lraEnvelopeCompress(programme(), fs, 0.3, m.integratedLUFS));
}

TEST(LraReduction, NarrowsTowardsTheTargetAndRefinementHoldsTheLoudness) {
    // Target 8 from ~20 LU: one pass at k = 0.4 lands close to it.
    EXPECT_NEAR(*measured(reduceLRA(programme(), fs, lra(8, true), stereoWeights)).loudnessRange, 8.0, 1.0);

    // Target 4: the first pass is held at k = 0.3 and stops short; refinement goes on to the
    // target while the integrated loudness stays where the first pass left it.
    const auto firstPass = measured(reduceLRA(programme(), fs, lra(4, false), stereoWeights));
    const auto refined = measured(reduceLRA(programme(), fs, lra(4, true), stereoWeights));
    EXPECT_GT(*firstPass.loudnessRange, 4 + lraTolerance);
    EXPECT_LE(*refined.loudnessRange, 4 + lraTolerance);
    EXPECT_NEAR(refined.integratedLUFS, firstPass.integratedLUFS, 0.1);
}
