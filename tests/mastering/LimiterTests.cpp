#include <gtest/gtest.h>

#include <numbers>

#include "MasteringSignals.h"
#include "mastering/Limiter.h"

using namespace velmora;
using namespace velmora::testsig;

namespace {

// Material whose crests lie between the samples: a sample-peak limiter lets them through.
Channels hardMaterial(int kind, double fs, std::size_t frames) {
    std::vector<float> x(frames);
    const auto white = noise(frames, 1.0, 40 + std::uint64_t(kind));
    for (std::size_t i = 0; i < frames; ++i) {
        const double t = double(i) / fs;
        const bool burst = std::fmod(t, 0.25) < 0.1;
        switch (kind) {
        case 0: x[i] = float(std::sin(std::numbers::pi / 2 * double(i) + std::numbers::pi / 4)); break;  // fs/4 at 45°
        case 1: x[i] = std::sin(2 * std::numbers::pi * 997 * t) >= 0 ? 0.99f : -0.99f; break;
        case 2: x[i] = float(std::clamp(white[i] * 3.0, -1.0, 1.0)); break;  // clipped noise
        default:  // bursts just under Nyquist over a low thump
            x[i] = float((burst ? 0.6 * std::sin(std::numbers::pi * 0.92 * double(i) + 0.3) : 0.0) +
                         0.4 * std::sin(2 * std::numbers::pi * 55 * t));
        }
    }
    return {x, kind == 3 ? std::vector<float>(x.rbegin(), x.rend()) : x};
}

double truePeakDB(const Channels& x) { return LoudnessEngine::measureTruePeak(x); }

}  // namespace

TEST(Limiter, TruePeakOfTheLimitedBufferKeepsTheCeilingOnHardMaterialAtAnyGainAndRate) {
    for (double fs : {44100.0, 48000.0, 96000.0})
        for (int kind = 0; kind < 4; ++kind)
            for (double gainDB : {0.0, 6.0, 20.0})
                for (double extra : {0.0, 0.7}) {
                    SCOPED_TRACE(testing::Message() << fs << " Hz, material " << kind << ", +" << gainDB << " dB, extra " << extra);
                    const Channels x = hardMaterial(kind, fs, std::size_t(fs * 0.6));
                    const Channels y = limitToCeiling(x, fs, fromDB(gainDB), -1.0, extra);
                    const double tp = truePeakDB(y);
                    EXPECT_LE(tp, -1.0 - extra - 0.2);  // under the ceiling with most of the margin kept
                    EXPECT_GT(tp, -1.0 - extra - 1.0);  // and not pushed needlessly far down
                    // The clamp is a last guard: nothing reaches it.
                    const float h = float(fromDB(-1.0 - extra));
                    for (const auto& ch : y)
                        for (float v : ch) ASSERT_LT(std::fabs(v), h);
                }
}

TEST(Limiter, DelaysByTheLookAheadAndPassesQuietAudioExactly) {
    // Below 22 kHz the look-ahead grows to the attack plus the interpolator's reach.
    for (auto [fs, delay] : {std::pair{48000.0, 72ul}, {44100.0, 66ul}, {16000.0, 27ul}, {100.0, 12ul}}) {
        EXPECT_EQ(limiterDelayFrames(fs), delay);
        Channels x(2, std::vector<float>(5000, 0.0f));
        x[1][1000] = 0.1f;
        const Channels y = limitToCeiling(x, fs, 1.0, 0.0);
        for (std::size_t i = 0; i < 5000; ++i) ASSERT_EQ(y[1][i], i == 1000 + delay ? 0.1f : 0.0f) << i;
        EXPECT_EQ(y[0], x[0]);
    }
}

TEST(Limiter, SettlesAtTheAimRampsWithinTheAttackAndInPlaceMatchesTheCopy) {
    // 6 dB over the aim (0.3 dB under the ceiling) for a second: the gain settles at aim / peak.
    const auto in = steps({{-60, 48000}, {-6, 48000}});
    const Channels y = limitToCeiling(Channels{in}, fs48, fromDB(-0.3 + 6.0 + 6.0), 0.0);
    const std::size_t D = limiterDelayFrames(fs48), onset = 48000 + D;
    EXPECT_NEAR(std::fabs(y[0][onset + 40000]), fromDB(-0.3), 1e-5);
    // The very first loud sample already gets its full reduction (more: the onset rings over
    // the samples between them); one attack and a hold earlier, nothing is touched.
    EXPECT_LE(std::fabs(y[0][onset]), fromDB(-0.3));
    const std::size_t ahead = limiterAttackFrames(fs48) + 6;
    EXPECT_NEAR(std::fabs(y[0][onset - ahead - 1]), fromDB(-60 + 12 - 0.3), 1e-7);

    Channels n{noise(30000, 0.9, 10), noise(30000, 0.9, 11)};
    const Channels copy = limitToCeiling(n, fs48, 3.0, -2.0, 0.5);
    limitToCeilingInPlace(n, fs48, 3.0, -2.0, 0.5);
    EXPECT_EQ(n, copy);
}

TEST(PlannedReduction, IsHowFarTheMeasuredTruePeakOfTheScaledBufferStandsOverTheAim) {
    const double aimDB = -1.0 - 0.3;
    // A steady level 5 dB over the aim, and one frame 6 dB over: both get their full need.
    std::vector<float> sine(48000);
    for (std::size_t i = 0; i < sine.size(); ++i) sine[i] = float(fromDB(-10) * std::sin(2 * std::numbers::pi * 100 * double(i) / fs48));
    EXPECT_NEAR(plannedLimiterReduction(Channels{sine}, fs48, fromDB(aimDB + 5 + 10), -1.0), 5.0, 1e-3);
    Channels click(1, std::vector<float>(48000, 0.0f));
    click[0][100] = 0.5f;
    EXPECT_NEAR(plannedLimiterReduction(click, fs48, fromDB(aimDB + 6) / 0.5, -1.0), 6.0, 1e-5);
    EXPECT_EQ(plannedLimiterReduction(click, fs48, 1.0, -1.0), 0.0);
    EXPECT_EQ(plannedLimiterReduction(Channels{}, fs48, 10.0, -1.0), 0.0);
    // Inter-sample crests count: the samples of fs/4 at 45° stay 1 dB under the aim, yet the
    // limiter works on what the meter reads.
    for (int kind = 0; kind < 4; ++kind) {
        const Channels x = hardMaterial(kind, fs48, 24000);
        const double gain = fromDB(4.0);
        Channels scaled = x;
        for (auto& ch : scaled)
            for (auto& v : ch) v = float(gain * v);
        EXPECT_NEAR(plannedLimiterReduction(x, fs48, gain, -1.0), std::max(0.0, truePeakDB(scaled) - aimDB), 0.01) << kind;
    }
    const Channels quiet = hardMaterial(0, fs48, 24000);
    const double samplesUnderAim = fromDB(aimDB - 1.0) / std::sqrt(0.5);
    EXPECT_GT(plannedLimiterReduction(quiet, fs48, samplesUnderAim, -1.0), 1.5);
}

TEST(Limiter, StreamedOutputDoesNotDependOnTheBlocksItArrivesIn) {
    for (double fs : {8000.0, 44100.0, 96000.0}) {
        const Channels x = hardMaterial(2, fs, 150000);
        const Channels whole = limitToCeiling(x, fs, fromDB(12.0), -1.0, 0.4);
        for (double trimDB : {0.0, 0.3}) {
            StreamingLimiter limiter(2, fs, fromDB(12.0), -1.0, 0.4, trimDB);
            const float trim = float(fromDB(-trimDB));
            std::vector<float> out[2] = {std::vector<float>(65536), std::vector<float>(65536)};
            float* outs[2] = {out[0].data(), out[1].data()};
            // Blocks from one frame, shorter than the look-ahead, to the largest, as a decoder
            // and a writer cut them.
            const std::size_t frames = x[0].size();
            for (std::size_t begin = 0, n = 1; begin < frames; begin += n, n = n * 3 % 65536 + 7) {
                n = std::min(n, frames - begin);
                const float* ins[2] = {x[0].data() + begin, x[1].data() + begin};
                limiter.process(ins, outs, n);
                for (std::size_t c = 0; c < 2; ++c)
                    for (std::size_t i = 0; i < n; ++i)
                        ASSERT_EQ(out[c][i], trimDB == 0.0 ? whole[c][begin + i] : whole[c][begin + i] * trim)
                            << fs << " Hz, frame " << begin + i;
            }
        }
    }
}
