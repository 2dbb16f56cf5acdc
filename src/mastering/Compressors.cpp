#include "mastering/Compressors.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "mastering/LinkedGain.h"
#include "mastering/VectorMath.h"

namespace velmora {

namespace {

// Time constant in ms.
double onePole(double fs, double ms) { return std::exp(-1.0 / (fs * ms / 1000.0)); }

// b holds ln(peak) on entry (the vectorised log) and the detector level in dB on return.
// Sequential by nature, so kept apart from the vectorised passes around it; `top` lets the
// caller report the largest reduction without another pass.
__attribute__((target_clones("arch=x86-64-v3", "default")))
double detect(double* b, std::size_t n, double e, double aA, double aR, double& top) noexcept {
    double t = top;
    for (std::size_t j = 0; j < n; ++j) {
        const double L = b[j] * vmath::dbPerNeper;
        e = L + (e - L) * (L <= e ? aR : aA);
        t = e > t ? e : t;
        b[j] = e;
    }
    top = t;
    return e;
}

// The linked gain of `len` frames from each pointer into b, make-up excluded. The dB detector
// carries `env` from chunk to chunk; the floor of 1e-9 keeps silence at −180 dB.
void chunkGains(std::span<const float* const> channels, std::size_t len, const CompressorSettings& s, double& env,
                double& loudest, double* b) noexcept {
    linked::framePeaks(channels, len, 1e-9, b);
    vmath::log(b, b, len);
    env = detect(b, len, env, s.attack, s.release, loudest);
    const double threshold = s.thresholdDB, slope = s.slope;
    for (std::size_t j = 0; j < len; ++j) {
        const double over = b[j] - threshold;
        b[j] = over > 0.0 ? -over * slope * vmath::neperPerDb : 0.0;
    }
    vmath::exp(b, b, len);
}

// Reduction grows with the detector level, so the largest is that of the loudest frame.
double reductionAt(double loudestDB, const CompressorSettings& s) {
    const double over = loudestDB - s.thresholdDB;
    return over > 0.0 && s.slope > 0.0 ? over * s.slope : 0.0;
}

// Both compressors: the detector starts at −120 dB. Returns the largest reduction in dB.
double compress(Channels& channels, const CompressorSettings& s) {
    const std::size_t n = linked::frameCount(channels);
    if (n == 0) return 0.0;
    const auto gain = linked::newCurve(n);
    std::vector<double> buf(linked::chunkFrames);
    std::vector<const float*> at(channels.size());
    double env = detectorRestDB, loudest = detectorRestDB;
    for (std::size_t begin = 0; begin < n; begin += linked::chunkFrames) {
        const std::size_t len = std::min(linked::chunkFrames, n - begin);
        for (std::size_t c = 0; c < channels.size(); ++c) at[c] = channels[c].data() + begin;
        double* b = buf.data();
        chunkGains(at, len, s, env, loudest, b);
        float* g = gain.get() + begin;
        for (std::size_t j = 0; j < len; ++j) g[j] = float(s.makeup * b[j]);
    }
    linked::applyCurve(channels, gain.get());
    return reductionAt(loudest, s);
}

// Slow enough to leave transients to the limiter, gentle enough to be inaudible as such.
CompressorSettings protection(double fs) { return {onePole(fs, 50.0), onePole(fs, 400.0), -12.0, 0.5, 1.0}; }

}  // namespace

CompressorSettings busCompressorSettings(const MasterParams& p, double fs) {
    // Floors keep an attack or release of 0 from dividing by zero: 0.05 ms and 1 ms. A ratio
    // under 1:1 would expand, and one of 0 would divide by zero: the least is no compression.
    const double ratio = std::isnan(p.compRatio) ? 1.0 : std::max(p.compRatio, 1.0);
    return {onePole(fs, std::max(p.compAttack, 0.05)), onePole(fs, std::max(p.compRelease, 1.0)), p.compThreshold,
            1.0 - 1.0 / ratio, std::pow(10.0, p.compMakeup / 20.0)};
}

double busCompress(Channels& channels, double fs, const MasterParams& p) {
    if (!p.compOn) return 0.0;
    return compress(channels, busCompressorSettings(p, fs));
}

void protectCompress(Channels& channels, double fs) { compress(channels, protection(fs)); }

struct StreamingCompressor::State {
    State(CompressorSettings s, std::size_t channels) : settings(s), at(channels) {}
    CompressorSettings settings;
    double env = detectorRestDB, loudest = detectorRestDB;
    std::vector<double> buf = std::vector<double>(linked::chunkFrames);
    std::vector<const float*> at;
};

StreamingCompressor::StreamingCompressor(const CompressorSettings& settings, std::size_t channels)
    : state_(std::make_unique<State>(settings, channels)) {}
StreamingCompressor::~StreamingCompressor() = default;
StreamingCompressor::StreamingCompressor(StreamingCompressor&&) noexcept = default;

void StreamingCompressor::process(float* const* channels, std::size_t n) noexcept {
    State& st = *state_;
    for (std::size_t begin = 0; begin < n; begin += linked::chunkFrames) {
        const std::size_t len = std::min(linked::chunkFrames, n - begin);
        for (std::size_t c = 0; c < st.at.size(); ++c) st.at[c] = channels[c] + begin;
        chunkGains(st.at, len, st.settings, st.env, st.loudest, st.buf.data());
        // The same float gain and multiply as the whole-programme curve.
        for (std::size_t c = 0; c < st.at.size(); ++c) {
            float* x = channels[c] + begin;
            for (std::size_t j = 0; j < len; ++j) x[j] *= float(st.settings.makeup * st.buf[j]);
        }
    }
}

double StreamingCompressor::maxReductionDB() const noexcept { return reductionAt(state_->loudest, state_->settings); }

StreamingProtection::StreamingProtection(std::size_t channels, double fs) : StreamingCompressor(protection(fs), channels) {}

}  // namespace velmora
