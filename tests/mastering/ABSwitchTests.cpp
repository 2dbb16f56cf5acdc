// The A/B switch inside the live render and the loudness match it plays the source at.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>

#include "MasteringSignals.h"
#include "audio/ProgrammeStream.h"
#include "mastering/LiveChainLoudness.h"
#include "mastering/OnlineMasteringStreamer.h"

using namespace velmora;
using namespace velmora::testsig;

namespace {

// A clear difference of level and of tone: 6 dB of make-up (the threshold above the signal, so
// no compression) and a bright shelf.
MasterParams brighterAndLouder() {
    MasterParams p;
    p.compOn = true;
    p.compThreshold = 0, p.compMakeup = 6;
    p.eqOn = true;
    p.hsGain = 6;
    p.hsFreq = 3000;
    return p;
}

// Two tones, the high one shaped by the shelf.
std::vector<float> twoTones(std::size_t n) {
    std::vector<float> x(n);
    for (std::size_t i = 0; i < n; ++i)
        x[i] = float(0.2 * std::sin(2 * M_PI * 200 * double(i) / fs48) + 0.1 * std::sin(2 * M_PI * 5000 * double(i) / fs48));
    return x;
}

float largestStep(const std::vector<float>& x, std::size_t from, std::size_t to) {
    float worst = 0;
    for (std::size_t i = from + 1; i < to; ++i) worst = std::max(worst, std::fabs(x[i] - x[i - 1]));
    return worst;
}

}  // namespace

TEST(ABSwitch, CrossesToTheScaledSourceWithinTheFadeAndBackWithoutAStep) {
    const auto x = twoTones(48000);
    OnlineMasteringStreamer s;
    ASSERT_FALSE(s.init({x, x}, fs48, fs48));
    s.update(brighterAndLouder(), 0.0);
    std::vector<float> l(x.size()), r(x.size());
    auto render = [&](std::size_t from, std::size_t to) {
        for (std::size_t at = from; at < to; at += 256) s.render(std::min<std::size_t>(256, to - at), l.data() + at, r.data() + at);
    };
    render(0, 12000);
    const float gain = float(std::pow(10.0, -4.5 / 20));
    s.setSourceGain(-4.5);
    s.setSourceHeard(true);
    EXPECT_TRUE(s.sourceHeard());
    render(12000, 30000);
    s.setSourceHeard(false);
    render(30000, 48000);

    // Past the fade (25 ms, 1200 frames), the source itself at the gain, to float precision.
    for (std::size_t i = 12000 + 1200; i < 30000; ++i) ASSERT_NEAR(l[i], gain * x[i], 1e-6f) << i;
    // Before the switch and once back, the chain: louder than the source.
    auto peak = [&](std::size_t from, std::size_t to) {
        return *std::max_element(l.begin() + long(from), l.begin() + long(to), [](float a, float b) { return std::fabs(a) < std::fabs(b); });
    };
    EXPECT_GT(std::fabs(peak(6000, 12000)), 1.9f * 0.3f);
    EXPECT_NEAR(std::fabs(peak(40000, 48000)), std::fabs(peak(6000, 12000)), 1e-3f);
    // Through both crossings, no step larger than either side's own and never silent.
    const float own = std::max(largestStep(l, 6000, 12000), largestStep(l, 20000, 30000));
    EXPECT_LE(largestStep(l, 11000, 14000), own * 1.02f);
    EXPECT_LE(largestStep(l, 29000, 32000), own * 1.02f);
    for (std::size_t i = 11000; i < 32000; i += 4)
        ASSERT_GT(std::fabs(l[i]) + std::fabs(l[i + 1]) + std::fabs(l[i + 2]) + std::fabs(l[i + 3]), 1e-4f) << i;
}

TEST(ABSwitch, AGainChangeWhileTheSourceIsHeardGlidesToIt) {
    const std::vector<float> dc(9600, 0.5f);
    OnlineMasteringStreamer s;
    s.setSourceHeard(true);  // set before init: the render starts on the source, no fade
    ASSERT_FALSE(s.init({dc}, fs48, fs48));
    s.update(brighterAndLouder(), 0.0);
    std::vector<float> l(9600), r(9600);
    s.render(2400, l.data(), r.data());
    EXPECT_FLOAT_EQ(l[0], 0.5f);
    s.setSourceGain(6.0);
    s.render(7200, l.data() + 2400, r.data() + 2400);
    // A glide, not a step: no frame moves by more than a few thousandths, and it arrives.
    EXPECT_LT(largestStep(l, 2000, 9600), 0.01f);
    EXPECT_FLOAT_EQ(l[9599], float(0.5 * std::pow(10.0, 6.0 / 20)));
}

TEST(ABSwitch, TheMatchIsTheChainsLoudnessAboveTheSources) {
    const auto x = twoTones(5 * 48000);
    const Channels stereo{x, x};
    const HeldProgramme source(stereo, fs48);
    std::atomic<bool> cancelled{false};

    MasterParams louder;
    louder.compOn = true;
    louder.compThreshold = 0, louder.compMakeup = 6;
    EXPECT_FALSE(liveChainIsNeutral(louder));
    const auto level = measureLiveChain(source, louder, cancelled);
    ASSERT_TRUE(level);
    EXPECT_NEAR(level->matchGainDB(), 6.0, 0.01);
    EXPECT_NEAR(level->sourceLUFS, -12.8, 1.0);  // two tones at 0.2 and 0.1, the high one lifted by the weighting

    // A shelf adds loudness of its own: more than the make-up, less than make-up and shelf.
    const auto brighter = measureLiveChain(source, brighterAndLouder(), cancelled);
    ASSERT_TRUE(brighter);
    EXPECT_GT(brighter->matchGainDB(), 6.5);
    EXPECT_LT(brighter->matchGainDB(), 12.0);

    // Switched-off stages leave nothing to measure; a cancelled measurement says so.
    MasterParams off = brighterAndLouder();
    off.compOn = off.eqOn = false;
    EXPECT_TRUE(liveChainIsNeutral(off));
    EXPECT_TRUE(liveChainIsNeutral(MasterParams{}));
    cancelled = true;
    const auto stopped = measureLiveChain(source, louder, cancelled);
    ASSERT_FALSE(stopped);
    EXPECT_EQ(stopped.error().code, LoudnessError::Code::interrupted);

    // Silence has no loudness to match.
    cancelled = false;
    const Channels quiet{std::vector<float>(48000, 0.0f)};
    const auto none = measureLiveChain(HeldProgramme(quiet, fs48), louder, cancelled);
    ASSERT_FALSE(none);
    EXPECT_EQ(none.error().code, LoudnessError::Code::tooQuiet);
}

TEST(ABSwitch, ALongFileGivesFiguresSoFarBeforeItsMatch) {
    // Quiet then loud through a compressor that only the loud part reaches: the early figures
    // are those of the quiet part, the match of the whole lies elsewhere.
    auto x = twoTones(30 * 48000);
    for (std::size_t i = 0; i < 12 * 48000; ++i) x[i] *= 0.1f;
    const Channels mono{x};
    MasterParams squeeze;
    squeeze.compOn = true;
    squeeze.compThreshold = -20, squeeze.compRatio = 4, squeeze.compMakeup = 0;
    std::atomic<bool> cancelled{false};
    std::vector<double> sofar;
    const auto whole = measureLiveChain(HeldProgramme(mono, fs48), squeeze, cancelled,
                                        [&](const LiveChainLoudness& l) { sofar.push_back(l.matchGainDB()); });
    ASSERT_TRUE(whole);
    ASSERT_EQ(sofar.size(), 2u);  // after about 10 and 20 s of the 30
    EXPECT_NEAR(sofar[0], 0.0, 0.1);  // the quiet part stays under the threshold
    EXPECT_LT(whole->matchGainDB(), -3.0);
    EXPECT_LT(sofar[1], sofar[0] - 1.0);
}
