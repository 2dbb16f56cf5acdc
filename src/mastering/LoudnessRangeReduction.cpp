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

struct Envelope {
    double a, refFloor, exponent, env;

    Envelope(double fs, double ratio, double referenceLUFS) {
        // 150 ms: slow enough to follow phrases rather than waveforms.
        a = std::exp(-1.0 / (fs * 0.15));
        // The loudness undone by the −0.691 dB offset reads as a linear level on the peak scale.
        const double ref = std::pow(10.0, (referenceLUFS + 0.691) / 20.0);
        refFloor = std::max(ref, 1e-9);
        exponent = ratio - 1.0;  // 10^((k·L − L)/20) = (env/ref)^(k − 1)
        env = ref;
    }

    // b holds the frame peaks on entry and the linear gains on return.
    void gains(double* b, std::size_t len) noexcept {
        env = follow(b, len, env, a);
        for (std::size_t j = 0; j < len; ++j) b[j] = std::max(b[j], 1e-9) / refFloor;
        vmath::log(b, b, len);
        for (std::size_t j = 0; j < len; ++j) b[j] *= exponent;
        vmath::exp(b, b, len);
    }
};

}  // namespace

void lraEnvelopeCompressInPlace(Channels& channels, double fs, double ratio, double referenceLUFS) {
    const std::size_t n = linked::frameCount(channels);
    if (n == 0) return;
    Envelope envelope(fs, ratio, referenceLUFS);
    const auto gain = linked::newCurve(n);
    std::vector<double> buf(linked::chunkFrames);
    for (std::size_t begin = 0; begin < n; begin += linked::chunkFrames) {
        const std::size_t len = std::min(linked::chunkFrames, n - begin);
        double* b = buf.data();
        linked::framePeaks(channels, begin, len, 1e-9, b);
        envelope.gains(b, len);
        float* g = gain.get() + begin;
        for (std::size_t j = 0; j < len; ++j) g[j] = float(b[j]);
    }
    linked::applyCurve(channels, gain.get());
}

struct StreamingEnvelope::State {
    State(std::size_t channels, double fs, double ratio, double referenceLUFS)
        : envelope(fs, ratio, referenceLUFS), at(channels) {}
    Envelope envelope;
    std::vector<double> buf = std::vector<double>(linked::chunkFrames);
    std::vector<const float*> at;
};

StreamingEnvelope::StreamingEnvelope(std::size_t channels, double fs, double ratio, double referenceLUFS)
    : state_(std::make_unique<State>(channels, fs, ratio, referenceLUFS)) {}
StreamingEnvelope::~StreamingEnvelope() = default;
StreamingEnvelope::StreamingEnvelope(StreamingEnvelope&&) noexcept = default;

void StreamingEnvelope::process(float* const* channels, std::size_t n) noexcept {
    State& st = *state_;
    for (std::size_t begin = 0; begin < n; begin += linked::chunkFrames) {
        const std::size_t len = std::min(linked::chunkFrames, n - begin);
        for (std::size_t c = 0; c < st.at.size(); ++c) st.at[c] = channels[c] + begin;
        double* b = st.buf.data();
        linked::framePeaks(st.at, len, 1e-9, b);
        st.envelope.gains(b, len);
        // The same float gain and multiply as the whole-programme curve.
        for (std::size_t c = 0; c < st.at.size(); ++c) {
            float* x = channels[c] + begin;
            for (std::size_t j = 0; j < len; ++j) x[j] *= float(b[j]);
        }
    }
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

}  // namespace

Expected<std::vector<LraStep>> planLRA(const MasterParams& p, const LraMeasure& measure, const ProgressFn& progress) {
    std::vector<LraStep> steps;
    if (!p.lraOn) return steps;
    const auto report = [&](double f) {
        if (progress) progress(f);
    };
    const double reached = p.lraTarget + lraTolerance;
    auto ratioFor = [&](double lra) { return std::max(p.lraTarget / lra, lraMinimumRatio); };
    auto envelope = [](double ratio, double reference) { return LraStep{false, ratio, reference, 1.0f}; };

    auto before = measure(steps);
    if (!before) return before.error();
    report(0.1);
    if (!usable(*before) || *before->loudnessRange <= reached) return steps;
    steps.push_back(envelope(ratioFor(*before->loudnessRange), before->integratedLUFS));
    report(0.2);
    if (!p.lraIterative) return steps;

    auto first = measure(steps);
    if (!first) return first.error();
    if (!usable(*first) || *first->loudnessRange <= reached) return steps;
    const double I0 = first->integratedLUFS;
    double best = *first->loudnessRange, I = I0, L = best;
    // Four counted passes bound the work at five envelope passes in all.
    constexpr int maxPasses = 4;
    for (int count = 0;;) {
        report(0.3 + 0.175 * count);
        steps.push_back(envelope(ratioFor(L), I));
        auto measured = measure(steps);
        if (!measured) return measured.error();
        ProgrammeLoudness m = *measured;
        if (!usable(m)) break;
        // Hold the first pass's loudness so the range shrinks about it rather than drifting down.
        if (std::fabs(I0 - m.integratedLUFS) > 0.05) {
            const float gain = float(std::pow(10.0, (I0 - m.integratedLUFS) / 20.0));
            steps.push_back(LraStep{true, 1.0, 0.0, gain});
            m.integratedLUFS += 20.0 * std::log10(double(gain));
        }
        const double Lp = *m.loudnessRange;
        if (Lp <= reached || Lp >= best - 0.05) break;
        ++count;
        best = Lp;
        I = m.integratedLUFS;
        if (count == maxPasses) break;
        L = Lp;
    }
    return steps;
}

namespace {

// Runs the steps not yet applied to the buffer, in place.
void applySteps(Channels& channels, double fs, const std::vector<LraStep>& steps, std::size_t& applied) {
    for (; applied < steps.size(); ++applied) {
        const LraStep& s = steps[applied];
        if (s.isGain) applyGainInPlace(channels, s.gain);
        else lraEnvelopeCompressInPlace(channels, fs, s.ratio, s.referenceLUFS);
    }
}

}  // namespace

Channels reduceLRA(Channels channels, double fs, const MasterParams& p, std::span<const double> weights,
                   const ProgressFn& progress) {
    if (!p.lraOn) return channels;
    std::size_t applied = 0;
    const auto steps = planLRA(
        p,
        [&](const std::vector<LraStep>& upTo) -> Expected<ProgrammeLoudness> {
            applySteps(channels, fs, upTo, applied);
            return measureProgramme(channels, fs, weights);
        },
        progress);
    // Measuring a buffer in memory cannot fail.
    if (steps) applySteps(channels, fs, *steps, applied);
    if (progress) progress(1.0);
    return channels;
}

}  // namespace velmora
