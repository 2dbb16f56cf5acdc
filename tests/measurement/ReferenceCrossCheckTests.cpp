// Cross-check against an independent meter (libebur128, public C API only) on three minutes of
// programme-like material: pink-ish noise under a slow 26 dB envelope, stretches of digital
// silence and a few loud bursts. Conformance signals are tones; this catches what tones do not
// (broadband filtering, gating on a moving level, percentile picking over many blocks).
#include <gtest/gtest.h>

#include <ebur128.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <iterator>
#include <string>
#include <utility>
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
    struct Point {
        double t, db;
    };
    static constexpr Point points[] = {{0, -26}, {70, 0}, {110, -8}, {180, -22}};
    for (std::size_t i = 0; i + 1 < std::size(points); ++i)
        if (t < points[i + 1].t)
            return points[i].db + (points[i + 1].db - points[i].db) * (t - points[i].t) / (points[i + 1].t - points[i].t);
    return points[std::size(points) - 1].db;
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

struct Reference {
    double integrated = -std::numeric_limits<double>::infinity();
    double range = 0.0;
    double momentaryMax = -std::numeric_limits<double>::infinity();
    double shortTermMax = -std::numeric_limits<double>::infinity();
    double truePeakDb = -240.0;
};

using MeterPtr = std::unique_ptr<ebur128_state, void (*)(ebur128_state*)>;

MeterPtr makeMeter(unsigned channels, double fs, int mode) {
    return MeterPtr(ebur128_init(channels, (unsigned long)fs, mode), [](ebur128_state* s) { ebur128_destroy(&s); });
}

// Feeds the programme in 10 ms chunks and calls `after(k)` once chunk k is in.
template <typename After>
void feed(ebur128_state* st, const Channels& ch, std::size_t chunk, After after) {
    const std::size_t channels = ch.size();
    std::vector<float> interleaved(chunk * channels);
    for (std::size_t k = 0; (k + 1) * chunk <= ch[0].size(); ++k) {
        for (std::size_t i = 0; i < chunk; ++i)
            for (std::size_t c = 0; c < channels; ++c) interleaved[i * channels + c] = ch[c][k * chunk + i];
        ebur128_add_frames_float(st, interleaved.data(), chunk);
        after(k);
    }
}

// M and S are wanted on the engine's 10 ms grid, only from full windows (the engine has no
// partial ones). Reading the reference's short-term value costs a pass over 3 s of audio, so a
// first pass reads every 100 ms and a second reads every 10 ms only around the near-maxima.
Reference referenceMeter(const Channels& ch, double fs) {
    const unsigned channels = unsigned(ch.size());
    const std::size_t chunk = std::size_t(std::llround(fs / 100.0));
    const std::size_t chunks = ch[0].size() / chunk;
    const std::size_t mChunks = LoudnessEngine::momentaryBlockFrames(fs) / chunk;
    const std::size_t sChunks = LoudnessEngine::shortTermBlockFrames(fs) / chunk;
    const double none = -std::numeric_limits<double>::infinity();

    Reference ref;
    std::vector<double> coarseM(chunks, none), coarseS(chunks, none);
    {
        auto st = makeMeter(channels, fs,
                            EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_M | EBUR128_MODE_S |
                                EBUR128_MODE_TRUE_PEAK);
        if (!st) return ref;
        feed(st.get(), ch, chunk, [&](std::size_t k) {
            if ((k + 1) % 10 != 0) return;
            if (k + 1 >= mChunks) ebur128_loudness_momentary(st.get(), &coarseM[k]);
            if (k + 1 >= sChunks) ebur128_loudness_shortterm(st.get(), &coarseS[k]);
        });
        ebur128_loudness_global(st.get(), &ref.integrated);
        ebur128_loudness_range(st.get(), &ref.range);
        double peak = 0.0;
        for (unsigned c = 0; c < channels; ++c) {
            double p = 0.0;
            ebur128_true_peak(st.get(), c, &p);
            peak = std::max(peak, p);
        }
        ref.truePeakDb = peak > 0.0 ? 20.0 * std::log10(peak) : -240.0;
    }

    // A 10 ms-grid maximum is within 50 ms of a 100 ms point that reads at most a few dB less.
    const auto around = [&](const std::vector<double>& coarse, double margin) {
        const double top = *std::max_element(coarse.begin(), coarse.end());
        std::vector<bool> fine(chunks, false);
        for (std::size_t k = 0; k < chunks; ++k)
            if (coarse[k] >= top - margin)
                for (std::size_t j = k > 10 ? k - 10 : 0; j <= std::min(chunks - 1, k + 10); ++j) fine[j] = true;
        return std::pair{top, fine};
    };
    auto [topM, fineM] = around(coarseM, 3.0);
    auto [topS, fineS] = around(coarseS, 3.0);
    ref.momentaryMax = topM;
    ref.shortTermMax = topS;
    auto st = makeMeter(channels, fs, EBUR128_MODE_M | EBUR128_MODE_S);
    feed(st.get(), ch, chunk, [&](std::size_t k) {
        double v = 0.0;
        if (fineM[k] && k + 1 >= mChunks && ebur128_loudness_momentary(st.get(), &v) == EBUR128_SUCCESS)
            ref.momentaryMax = std::max(ref.momentaryMax, v);
        if (fineS[k] && k + 1 >= sChunks && ebur128_loudness_shortterm(st.get(), &v) == EBUR128_SUCCESS)
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
    const auto r = LoudnessEngine::measure(ch, std::vector<double>{1.0, 1.0}, fs);

    ASSERT_TRUE(std::isfinite(ref.integrated));
    EXPECT_NEAR(r.integratedLUFS, ref.integrated, 0.02);
    ASSERT_TRUE(r.loudnessRange.has_value());
    EXPECT_NEAR(*r.loudnessRange, ref.range, 0.1);
    EXPECT_NEAR(r.momentaryMax, ref.momentaryMax, 0.05);
    EXPECT_NEAR(r.shortTermMax, ref.shortTermMax, 0.05);
    // The two meters interpolate with different filters.
    EXPECT_NEAR(r.truePeakDB, ref.truePeakDb, 0.2);

    // A meter that got everything right by accident on a flat programme would not see these.
    EXPECT_GT(ref.range, 15.0) << "programme no longer spans a wide range";
    EXPECT_GT(ref.momentaryMax - ref.integrated, 10.0) << "bursts no longer stand out";
}

INSTANTIATE_TEST_SUITE_P(Rates, ReferenceCrossCheck, ::testing::Values(48000.0, 44100.0),
                         [](const auto& info) { return std::to_string(int(info.param)) + "Hz"; });

}  // namespace
}  // namespace velmora
