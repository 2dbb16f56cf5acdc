#include <gtest/gtest.h>

#include "MasteringSignals.h"
#include "mastering/Equalisers.h"
#include "mastering/Compressors.h"
#include "mastering/Conformance.h"
#include "mastering/Limiter.h"
#include "mastering/MidSide.h"
#include "mastering/ProgrammeLoudness.h"
#include "mastering/Render.h"

using namespace velmora;
using namespace velmora::testsig;

TEST(RenderMaster, AllStagesOffReturnsTheInputUntouched) {
    const Channels in = stereoNoise(96000, 0.5);
    std::vector<double> seen;
    auto r = renderMaster(in, {}, fs48, stereoWeights, [&](double f) { seen.push_back(f); });
    EXPECT_EQ(r.channels, in);
    EXPECT_EQ(r.maxGR, 0.0);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()) && seen.front() == 0.02 && seen.back() <= 0.65);
}

TEST(RenderMaster, StagesRunInTheirFixedOrder) {
    const Channels in = stereoNoise(48000, 0.8);
    MasterParams p;
    p.msOn = true, p.sideGain = 4;
    p.eqOn = true, p.lsGain = 6, p.hpfOn = true;
    p.compOn = true, p.compThreshold = -20, p.compRatio = 4;
    p.teqOn = true, p.tHsGain = -5;
    const auto r = renderMaster(in, p, fs48, stereoWeights);

    Channels x = in;
    applyMidSide(x, 0, 4);
    applyEQ(x, buildFiveBandEQ(p, fs48));
    const double gr = busCompress(x, fs48, p);
    applyEQ(x, buildTonalEQ(p, fs48));
    EXPECT_EQ(r.channels, x);
    EXPECT_EQ(r.maxGR, gr);
    EXPECT_GT(gr, 1.0);
}

TEST(RenderMaster, SurroundSkipsMidSideAndFiltersEveryChannel) {
    const auto x = noise(48000, 0.5, 23);
    MasterParams p;
    p.msOn = true, p.sideGain = -30;
    p.eqOn = true, p.hsGain = 6;
    const auto r = renderMaster(Channels(6, x), p, fs48, std::vector<double>{1, 1, 1, 0, 1.41, 1.41});
    std::vector<float> one = x;
    applyBiquad(one, designHighShelf(fs48, 8000, 6));
    for (const auto& ch : r.channels) EXPECT_EQ(ch, one);
}

TEST(ConformMaster, LandsOnTheTargetOrIsTooQuiet) {
    // Noise around −30 LUFS with a crest of ~5 dB: raising it 7 dB needs no real limiting.
    const Channels in = stereoNoise(960000, fromDB(-24));
    const auto r = conformMaster(in, fs48, -23.0, -1.0, {}, stereoWeights);
    ASSERT_TRUE(r);
    EXPECT_NEAR(LoudnessEngine::measure(r->channels, stereoWeights, fs48).integratedLUFS, -23.0, 0.1);
    EXPECT_EQ(r->protectionAppliedDB, 0.0);
    EXPECT_NEAR(r->integratedBeforeLUFS, LoudnessEngine::measure(in, stereoWeights, fs48).integratedLUFS, 1e-9);
    // The plan is what the limiter then works from, so a caller can limit again.
    const auto plan = planConformance(in, fs48, -23.0, -1.0, {}, stereoWeights);
    EXPECT_EQ(limitToCeiling(plan->beforeLimiter, fs48, plan->gainLin, -1.0), r->channels);

    const auto silent = conformMaster(Channels(2, std::vector<float>(96000)), fs48, -23, -1, {}, stereoWeights);
    ASSERT_FALSE(silent);
    EXPECT_EQ(silent.error().code, LoudnessError::Code::tooQuiet);
}

TEST(ConformMaster, ProtectionOnlyWhenThePlannedReductionIsStrictlyOverTheThreshold) {
    // Noise with a 2 ms burst near full scale every second: brought to −10 LUFS, the bursts
    // would sit several dB over the ceiling.
    Channels in = stereoNoise(480000, fromDB(-20));
    for (std::size_t i = 1000; i + 96 < in[0].size(); i += 48000)
        for (std::size_t j = 0; j < 96; ++j) in[0][i + j] = in[1][i + j] = j % 2 ? -0.9f : 0.9f;
    const double I = measureProgramme(in, fs48, stereoWeights, false).integratedLUFS;
    const double planned = plannedLimiterReduction(in, fs48, fromDB(-10 - I), -1.0);
    ASSERT_GT(planned, 3.0);

    MasterParams p;
    p.autoProtectThresholdDB = planned;
    auto r = conformMaster(in, fs48, -10, -1, p, stereoWeights);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->protectionAppliedDB, 0.0);

    p.autoProtectThresholdDB = 1.5;
    r = conformMaster(in, fs48, -10, -1, p, stereoWeights);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->protectionAppliedDB, planned);
    // The gain is taken again from the compressed buffer.
    protectCompress(in, fs48);
    EXPECT_NEAR(r->gainLin, fromDB(-10 - measureProgramme(in, fs48, stereoWeights, false).integratedLUFS), 1e-12);
}
