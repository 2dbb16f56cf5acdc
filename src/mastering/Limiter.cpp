#include "mastering/Limiter.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "mastering/LinkedGain.h"
#include "measurement/WorkerPool.h"

namespace velmora {

namespace {

struct Smoothing {
    double attack, release;  // one-pole coefficients: falling, rising
};

// 1 ms to pull the gain down, 80 ms to let it back up.
Smoothing smoothingFor(double fs) { return {std::exp(-1.0 / (fs * 0.001)), std::exp(-1.0 / (fs * 0.08))}; }

// Rounded to float: the curve is kept as float, one per frame.
__attribute__((target_clones("arch=x86-64-v3", "default")))
void targetGains(const double* peak, double scale, double c, std::size_t n, float* g) noexcept {
    for (std::size_t j = 0; j < n; ++j) {
        const double p = scale * peak[j];
        g[j] = p > c ? float(c / p) : 1.0f;
    }
}

// The limiter's per-frame peak is that of the float-scaled samples; rounding is monotonic, so
// it is the scaled float of the loudest unscaled sample.
__attribute__((target_clones("arch=x86-64-v3", "default")))
void scaledFloatPeaks(double* peak, double gainLin, std::size_t n) noexcept {
    for (std::size_t j = 0; j < n; ++j) peak[j] = double(float(gainLin * peak[j]));
}

// In place over one chunk, the state passed on to the next: sequential by nature, so it is
// kept apart from the vectorised passes around it.
__attribute__((target_clones("arch=x86-64-v3", "default")))
double smooth(float* g, std::size_t n, double s, Smoothing k) noexcept {
    const double aA = k.attack, aR = k.release;
    for (std::size_t j = 0; j < n; ++j) {
        const double t = g[j];
        s = (s - t) * (s > t ? aA : aR) + t;
        g[j] = float(s);
    }
    return s;
}

__attribute__((target_clones("arch=x86-64-v3", "default")))
double smoothMinimum(const float* g, std::size_t n, double& s, Smoothing k) noexcept {
    const double aA = k.attack, aR = k.release;
    double st = s, lowest = 1.0;
    for (std::size_t j = 0; j < n; ++j) {
        const double t = g[j];
        st = (st - t) * (st > t ? aA : aR) + t;
        lowest = st < lowest ? st : lowest;
    }
    s = st;
    return lowest;
}

// y is the block's delayed, scaled input, copied out so an in-place run cannot overwrite it
// before it is read.
__attribute__((target_clones("arch=x86-64-v3", "default")))
void applyBlock(const float* y, const float* s, float* dst, std::size_t n, float h) noexcept {
    for (std::size_t j = 0; j < n; ++j) {
        const float v = y[j] * s[j];
        dst[j] = v < -h ? -h : (v > h ? h : v);
    }
}

__attribute__((target_clones("arch=x86-64-v3", "default")))
void scaleInto(const float* src, double gainLin, std::size_t n, float* y) noexcept {
    for (std::size_t j = 0; j < n; ++j) y[j] = float(gainLin * double(src[j]));
}

// One channel from `src` into `dst`, which may be the same array. Blocks run from the end
// backwards and each block's delayed input is copied out first, so in place nothing is read
// after it was overwritten.
void limitChannel(const float* src, float* dst, std::size_t n, std::size_t D, double gainLin, const float* s,
                  float h, float* y) noexcept {
    constexpr std::size_t B = linked::chunkFrames;
    std::size_t hi = n;
    while (hi > 0) {
        const std::size_t lo = hi > B ? hi - B : 0;
        // Frames [lo, hi) read inputs [lo − D, hi − D); those before the start are silence.
        const std::size_t silent = std::min(hi, std::max(lo, D)) - lo;
        std::fill(y, y + silent, 0.0f);
        if (hi > lo + silent) scaleInto(src + (lo + silent - D), gainLin, hi - lo - silent, y + silent);
        applyBlock(y, s + lo, dst + lo, hi - lo, h);
        hi = lo;
    }
}

// The whole curve comes before any output, so in place the detector still sees the input.
std::unique_ptr<float[]> gainCurve(const Channels& channels, double fs, double gainLin, double c) {
    const std::size_t n = linked::frameCount(channels);
    auto s = linked::newCurve(n);
    std::vector<double> peak(linked::chunkFrames);
    const Smoothing k = smoothingFor(fs);
    double state = 1.0;
    for (std::size_t begin = 0; begin < n; begin += linked::chunkFrames) {
        const std::size_t len = std::min(linked::chunkFrames, n - begin);
        linked::framePeaks(channels, begin, len, 0.0, peak.data());
        scaledFloatPeaks(peak.data(), gainLin, len);
        targetGains(peak.data(), 1.0, c, len, s.get() + begin);
        state = smooth(s.get() + begin, len, state, k);
    }
    return s;
}

void limit(const Channels& in, Channels& out, double fs, double gainLin, double ceilingDB, double extraDB) {
    const std::size_t n = linked::frameCount(in);
    if (n == 0) return;
    const double c = std::pow(10.0, (ceilingDB - limiterMarginDB - extraDB) / 20.0);
    const float h = float(std::pow(10.0, (ceilingDB - extraDB) / 20.0));
    const std::size_t D = limiterDelayFrames(fs);
    const auto s = gainCurve(in, fs, gainLin, c);
    std::vector<std::vector<float>> scratch(in.size(), std::vector<float>(linked::chunkFrames));
    parallelFor(in.size(), [&](std::size_t ch) {
        limitChannel(in[ch].data(), out[ch].data(), n, D, gainLin, s.get(), h, scratch[ch].data());
    });
}

}  // namespace

std::size_t limiterDelayFrames(double fs) { return std::max<std::size_t>(std::size_t(std::llround(fs * 0.0015)), 1); }

double plannedLimiterReduction(const Channels& channels, double fs, double gainLin, double ceilingDB) {
    const std::size_t n = linked::frameCount(channels);
    if (n == 0) return 0.0;
    const double c = std::pow(10.0, (ceilingDB - limiterMarginDB) / 20.0);
    const Smoothing k = smoothingFor(fs);
    std::vector<double> peak(linked::chunkFrames);
    std::vector<float> g(linked::chunkFrames);
    double state = 1.0, lowest = 1.0;
    for (std::size_t begin = 0; begin < n; begin += linked::chunkFrames) {
        const std::size_t len = std::min(linked::chunkFrames, n - begin);
        linked::framePeaks(channels, begin, len, 0.0, peak.data());
        targetGains(peak.data(), gainLin, c, len, g.data());
        lowest = std::min(lowest, smoothMinimum(g.data(), len, state, k));
    }
    return lowest >= 1.0 ? 0.0 : -20.0 * std::log10(lowest);
}

Channels limitToCeiling(const Channels& in, double fs, double gainLin, double ceilingDB, double extraHeadroomDB) {
    Channels out(in.size());
    for (std::size_t c = 0; c < in.size(); ++c) out[c].resize(in[c].size());
    limit(in, out, fs, gainLin, ceilingDB, extraHeadroomDB);
    return out;
}

void limitToCeilingInPlace(Channels& channels, double fs, double gainLin, double ceilingDB, double extraHeadroomDB) {
    limit(channels, channels, fs, gainLin, ceilingDB, extraHeadroomDB);
}

}  // namespace velmora
