// Cross-check against an independent meter (libebur128, public C API only) on three minutes of
// programme-like material: pink-ish noise under a slow 26 dB envelope, stretches of digital
// silence and a few loud bursts. Conformance signals are tones; this catches what tones do not
// (broadband filtering, gating on a moving level, percentile picking over many blocks).
#include <gtest/gtest.h>

#include <ebur128.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "measurement/LoudnessEngine.h"
#include "measurement/Signals.h"

namespace velmora {
namespace {

using namespace signals;

// Level in dB, piecewise linear: a slow rise over 26 dB, a dip, a long fade. Short-term values
// then spread evenly, so the range does not hang on where a few blocks fall; the reference takes
// its range blocks once a second (its range equals that of every tenth 100 ms block), which on a
// busier envelope moves its answer by a few tenths against the engine's 100 ms blocks.
double envelopeDb(double t) {
    static constexpr double at[] = {0, 70, 110, 180}, db[] = {-26, 0, -8, -22};
    for (std::size_t i = 0; i < 3; ++i)
        if (t < at[i + 1]) return db[i] + (db[i + 1] - db[i]) * (t - at[i]) / (at[i + 1] - at[i]);
    return db[3];
}

Channels programme(double fs) {
    const std::size_t frames = framesFor(180.0, fs);
    Channels ch(2, std::vector<float>(frames));
    PinkishNoise common(11, fs), left(12, fs), right(13, fs);
    const auto inside = [](double t, double from, double to) { return t >= from && t < to; };
    const std::size_t gainStep = std::size_t(fs / 1000.0);
    double g = 0.0;
    for (std::size_t n = 0; n < frames; ++n) {
        const double t = double(n) / fs;
        if (n % gainStep == 0) g = dbToAmplitude(envelopeDb(t) - 4.0);
        const double c = common.next();
        double l = g * (0.7 * c + 0.5 * left.next());
        double r = g * (0.7 * c + 0.5 * right.next());
        if (inside(t, 20.0, 23.0) || inside(t, 160.0, 161.8)) l = r = 0.0;
        // Loud bursts in the quieter stretches, off the 100 ms grid so the maxima depend on the
        // fine grid; the momentary maximum is theirs, 15 LU over the programme.
        if (inside(t, 35.0, 35.35) || inside(t, 135.023, 135.31) || inside(t, 150.05, 150.5)) {
            const double tone = 0.25 * sineSample(2500.0, fs, n);
            l += tone + g * c;
            r += 0.8 * tone - g * c;
        }
        ch[0][n] = float(l);
        ch[1][n] = float(r);
    }
    return ch;
}

using MeterPtr = std::unique_ptr<ebur128_state, void (*)(ebur128_state*)>;

// The first pass also gives I, LRA and true peak; M and S are wanted on the engine's 10 ms grid,
// only from full windows (the engine has no partial ones). Reading the reference's short-term
// value costs a pass over 3 s of audio, so the first pass reads every 100 ms and a second reads
// every 10 ms only around the near-maxima: a 10 ms-grid maximum is within 50 ms of a 100 ms
// point that reads at most a few dB less.
LoudnessResult referenceMeter(const Channels& ch, double fs) {
    const std::size_t chunk = std::size_t(std::llround(fs / 100.0)), chunks = ch[0].size() / chunk;
    const std::size_t mChunks = LoudnessEngine::momentaryBlockFrames(fs) / chunk;
    const std::size_t sChunks = LoudnessEngine::shortTermBlockFrames(fs) / chunk;
    // Feeds the programme in 10 ms chunks and calls `read(k, meter)` once chunk k is in.
    const auto feed = [&](int mode, auto read) {
        MeterPtr st(ebur128_init(unsigned(ch.size()), (unsigned long)fs, mode), [](ebur128_state* s) { ebur128_destroy(&s); });
        std::vector<float> interleaved(chunk * ch.size());
        for (std::size_t k = 0; k < chunks; ++k) {
            for (std::size_t i = 0; i < chunk; ++i)
                for (std::size_t c = 0; c < ch.size(); ++c) interleaved[i * ch.size() + c] = ch[c][k * chunk + i];
            ebur128_add_frames_float(st.get(), interleaved.data(), chunk);
            read(k, st.get());
        }
        return st;
    };

    std::vector<double> coarseM(chunks, minusInf), coarseS(chunks, minusInf);
    const auto st = feed(EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_M | EBUR128_MODE_S | EBUR128_MODE_TRUE_PEAK,
                         [&](std::size_t k, ebur128_state* s) {
                             if ((k + 1) % 10 != 0) return;
                             if (k + 1 >= mChunks) ebur128_loudness_momentary(s, &coarseM[k]);
                             if (k + 1 >= sChunks) ebur128_loudness_shortterm(s, &coarseS[k]);
                         });
    LoudnessResult ref;
    double range = 0.0, peak = 0.0;
    ebur128_loudness_global(st.get(), &ref.integratedLUFS);
    ebur128_loudness_range(st.get(), &range);
    ref.loudnessRange = range;
    for (unsigned c = 0; c < ch.size(); ++c)
        if (double p = 0.0; ebur128_true_peak(st.get(), c, &p) == EBUR128_SUCCESS) peak = std::max(peak, p);
    ref.truePeakDB = 20.0 * std::log10(peak);

    ref.momentaryMax = *std::max_element(coarseM.begin(), coarseM.end());
    ref.shortTermMax = *std::max_element(coarseS.begin(), coarseS.end());
    const auto nearTop = [&](const std::vector<double>& coarse, double top, std::size_t k) {
        for (std::size_t j = k > 10 ? k - 10 : 0; j <= std::min(chunks - 1, k + 10); ++j)
            if (coarse[j] >= top - 3.0) return true;
        return false;
    };
    const double topM = ref.momentaryMax, topS = ref.shortTermMax;
    feed(EBUR128_MODE_M | EBUR128_MODE_S, [&](std::size_t k, ebur128_state* s) {
        double v = 0.0;
        if (k + 1 >= mChunks && nearTop(coarseM, topM, k) && ebur128_loudness_momentary(s, &v) == EBUR128_SUCCESS)
            ref.momentaryMax = std::max(ref.momentaryMax, v);
        if (k + 1 >= sChunks && nearTop(coarseS, topS, k) && ebur128_loudness_shortterm(s, &v) == EBUR128_SUCCESS)
            ref.shortTermMax = std::max(ref.shortTermMax, v);
    });
    return ref;
}

class ReferenceCrossCheck : public ::testing::TestWithParam<double> {};

TEST_P(ReferenceCrossCheck, AgreesWithIndependentMeter) {
    const double fs = GetParam();
    const auto ch = programme(fs);
    ASSERT_EQ(ch[0].size() % std::size_t(std::llround(fs / 100.0)), 0u);
    const auto ref = referenceMeter(ch, fs);
    const auto r = LoudnessEngine::measure(ch, stereo, fs);

    ASSERT_TRUE(std::isfinite(ref.integratedLUFS));
    EXPECT_NEAR(r.integratedLUFS, ref.integratedLUFS, 0.02);
    ASSERT_TRUE(r.loudnessRange.has_value());
    EXPECT_NEAR(*r.loudnessRange, *ref.loudnessRange, 0.1);
    EXPECT_NEAR(r.momentaryMax, ref.momentaryMax, 0.05);
    EXPECT_NEAR(r.shortTermMax, ref.shortTermMax, 0.05);
    // The two meters interpolate with different filters.
    EXPECT_NEAR(r.truePeakDB, ref.truePeakDB, 0.2);

    // A meter that got everything right by accident on a flat programme would not see these.
    EXPECT_GT(*ref.loudnessRange, 15.0) << "programme no longer spans a wide range";
    EXPECT_GT(ref.momentaryMax - ref.integratedLUFS, 10.0) << "bursts no longer stand out";
}

INSTANTIATE_TEST_SUITE_P(Rates, ReferenceCrossCheck, ::testing::Values(48000.0, 44100.0),
                         [](const auto& info) { return std::to_string(int(info.param)) + "Hz"; });

}  // namespace
}  // namespace velmora
