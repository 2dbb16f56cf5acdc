#include "mastering/LoudnessRangeReduction.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "mastering/LinkedGain.h"
#include "mastering/ProgrammeLoudness.h"
#include "mastering/VectorMath.h"

namespace velmora {

namespace {

// In place over one chunk, the state passed on to the next; sequential, unlike the passes around it.
__attribute__((target_clones("arch=x86-64-v3", "default")))
double follow(double* b, std::size_t n, double e, double a) noexcept {
    for (std::size_t j = 0; j < n; ++j) {
        e = b[j] + a * (e - b[j]);
        b[j] = e;
    }
    return e;
}

}  // namespace

void lraEnvelopeCompressInPlace(Channels& channels, double fs, double ratio, double referenceLUFS) {
    const std::size_t n = linked::frameCount(channels);
    if (n == 0) return;
    // 150 ms: slow enough to follow phrases rather than waveforms.
    const double a = std::exp(-1.0 / (fs * 0.15));
    // The loudness undone by the −0.691 dB offset reads as a linear level on the peak scale.
    const double ref = std::pow(10.0, (referenceLUFS + 0.691) / 20.0);
    const double refFloor = std::max(ref, 1e-9);
    const double exponent = ratio - 1.0;  // 10^((k·L − L)/20) = (env/ref)^(k − 1)
    const auto gain = linked::newCurve(n);
    std::vector<double> buf(linked::chunkFrames);
    double env = ref;
    for (std::size_t begin = 0; begin < n; begin += linked::chunkFrames) {
        const std::size_t len = std::min(linked::chunkFrames, n - begin);
        double* b = buf.data();
        linked::framePeaks(channels, begin, len, 1e-9, b);
        env = follow(b, len, env, a);
        for (std::size_t j = 0; j < len; ++j) b[j] = std::max(b[j], 1e-9) / refFloor;
        vmath::log(b, b, len);
        for (std::size_t j = 0; j < len; ++j) b[j] *= exponent;
        vmath::exp(b, b, len);
        float* g = gain.get() + begin;
        for (std::size_t j = 0; j < len; ++j) g[j] = float(b[j]);
    }
    linked::applyCurve(channels, gain.get());
}

Channels lraEnvelopeCompress(Channels channels, double fs, double ratio, double referenceLUFS) {
    lraEnvelopeCompressInPlace(channels, fs, ratio, referenceLUFS);
    return channels;
}

void applyGainInPlace(Channels& channels, float gain) { linked::applyScalar(channels, gain); }

Channels applyGain(Channels channels, float gain) {
    applyGainInPlace(channels, gain);
    return channels;
}

namespace {

bool usable(const ProgrammeLoudness& m) { return std::isfinite(m.integratedLUFS) && m.loudnessRange.has_value(); }

void reduceInPlace(Channels& channels, double fs, const MasterParams& p, std::span<const double> weights,
                   const ProgressFn& report) {
    const double reached = p.lraTarget + lraTolerance;
    auto ratioFor = [&](double lra) { return std::max(p.lraTarget / lra, lraMinimumRatio); };

    const auto before = measureProgramme(channels, fs, weights);
    report(0.1);
    if (!usable(before) || *before.loudnessRange <= reached) return;
    lraEnvelopeCompressInPlace(channels, fs, ratioFor(*before.loudnessRange), before.integratedLUFS);
    report(0.2);
    if (!p.lraIterative) return;

    const auto first = measureProgramme(channels, fs, weights);
    if (!usable(first) || *first.loudnessRange <= reached) return;
    const double I0 = first.integratedLUFS;
    double best = *first.loudnessRange, I = I0, L = best;
    // Four counted passes bound the work at five envelope passes in all.
    constexpr int maxPasses = 4;
    for (int count = 0;;) {
        report(0.3 + 0.175 * count);
        lraEnvelopeCompressInPlace(channels, fs, ratioFor(L), I);
        auto m = measureProgramme(channels, fs, weights);
        if (!usable(m)) break;
        // Hold the first pass's loudness so the range shrinks about it rather than drifting down.
        if (std::fabs(I0 - m.integratedLUFS) > 0.05) {
            applyGainInPlace(channels, float(std::pow(10.0, (I0 - m.integratedLUFS) / 20.0)));
            m = measureProgramme(channels, fs, weights);
            if (!usable(m)) m = {I, best};
        }
        const double Lp = *m.loudnessRange;
        if (Lp <= reached || Lp >= best - 0.05) break;
        ++count;
        best = Lp;
        I = m.integratedLUFS;
        if (count == maxPasses) break;
        L = Lp;
    }
}

}  // namespace

Channels reduceLRA(Channels channels, double fs, const MasterParams& p, std::span<const double> weights,
                   const ProgressFn& progress) {
    if (!p.lraOn) return channels;
    const ProgressFn report = [&](double f) {
        if (progress) progress(f);
    };
    reduceInPlace(channels, fs, p, weights, report);
    report(1.0);
    return channels;
}

}  // namespace velmora
