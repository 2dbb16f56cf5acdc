#include "measurement/BandLimitedPeak.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>

#include "measurement/Kernels.h"

namespace velmora {
namespace {

// Sixteen points per sample leave at most 1/32 sample between a crest and the grid: 0.034 dB
// at 0.9 × Nyquist, which the parabola through the best three points brings under 0.0002 dB.
constexpr std::size_t phases = 16;
// The point between x[k] and x[k + 1] reads x[k − 23] … x[k + 24]: 48 samples is the shortest
// window that fits a 0.9 to 1.1 × Nyquist transition with over 70 dB of rejection.
constexpr std::size_t taps = 48;
constexpr std::size_t tapsBefore = 23;
constexpr std::size_t tapsAfter = taps - tapsBefore;  // counting x[k + 1]
// A chunk of intervals reads the taps of the intervals on either side of it too: they lend
// their points to the refinement of a crest found at its edge.
constexpr std::size_t lead = tapsBefore + 1;
constexpr std::size_t lag = tapsAfter + 1;
constexpr std::size_t chunkIntervals = 4096;
// Points are reduced as they come, a few dozen intervals at a time, so they stay in L1.
constexpr std::size_t gridIntervals = 64;
// A crest lies at most one interval from the 4× point that reads it highest; one more spares
// the guess about which side.
constexpr std::size_t widen = 2;

double besselI0(double x) {
    double sum = 1.0, term = 1.0;
    for (int k = 1; term > 1e-17 * sum; ++k) {
        const double half = x / (2.0 * k);
        term *= half * half;
        sum += term;
    }
    return sum;
}

// Tap-major with the phases contiguous, so a tap row is four vectors: entry j · 16 + p weighs
// x[k + j − 23] for the point k + p/16.
const std::array<double, taps * phases>& fineTaps() {
    static const auto table = [] {
        // β = 7.5 is the largest whose transition still fits between 0.9 and 1.1 × Nyquist: about
        // 77 dB of rejection, and every phase within 0.003 dB of unity gain up to 0.9 × Nyquist.
        constexpr double beta = 7.5, halfWidth = 24.0;
        std::array<double, taps * phases> t{};
        for (std::size_t p = 1; p < phases; ++p) {
            double sum = 0.0;
            for (std::size_t j = 0; j < taps; ++j) {
                const double d = double(p) / phases + double(tapsBefore) - double(j);
                const double r = d / halfWidth;
                const double window = besselI0(beta * std::sqrt(std::max(0.0, 1.0 - r * r))) / besselI0(beta);
                t[j * phases + p] = window * std::sin(std::numbers::pi * d) / (std::numbers::pi * d);
                sum += t[j * phases + p];
            }
            // Unity DC gain per phase: a gain that moved with the phase would read as ripple.
            for (std::size_t j = 0; j < taps; ++j) t[j * phases + p] /= sum;
        }
        // Phase 0 is the sample itself, exactly (sin(π·n) is not quite zero in floating point).
        t[tapsBefore * phases] = 1.0;
        return t;
    }();
    return table;
}

using v4d = double __attribute__((vector_size(32)));

// grid[i · 16 + p] = the point i + p/16 samples after x[0], for i < count; reads x[−23] …
// x[count + 23]. Two intervals at a time give eight independent sums to keep both FMA units
// busy while each tap row is loaded once. No helpers: a function returning a vector type
// would change its ABI between the two clones.
__attribute__((target_clones("arch=x86-64-v3", "default")))
void interpolate(const double* x, std::size_t count, const double* h, double* grid) noexcept {
    std::size_t i = 0;
    for (; i + 2 <= count; i += 2) {
        v4d a0 = {0, 0, 0, 0}, a1 = a0, a2 = a0, a3 = a0, b0 = a0, b1 = a0, b2 = a0, b3 = a0;
        const double* xi = x + i - tapsBefore;
        for (std::size_t j = 0; j < taps; ++j) {
            v4d h0, h1, h2, h3;
            std::memcpy(&h0, h + j * phases, sizeof h0);
            std::memcpy(&h1, h + j * phases + 4, sizeof h1);
            std::memcpy(&h2, h + j * phases + 8, sizeof h2);
            std::memcpy(&h3, h + j * phases + 12, sizeof h3);
            const double u = xi[j], v = xi[j + 1];
            a0 += h0 * u;
            a1 += h1 * u;
            a2 += h2 * u;
            a3 += h3 * u;
            b0 += h0 * v;
            b1 += h1 * v;
            b2 += h2 * v;
            b3 += h3 * v;
        }
        double* out = grid + i * phases;
        std::memcpy(out, &a0, sizeof a0);
        std::memcpy(out + 4, &a1, sizeof a1);
        std::memcpy(out + 8, &a2, sizeof a2);
        std::memcpy(out + 12, &a3, sizeof a3);
        std::memcpy(out + 16, &b0, sizeof b0);
        std::memcpy(out + 20, &b1, sizeof b1);
        std::memcpy(out + 24, &b2, sizeof b2);
        std::memcpy(out + 28, &b3, sizeof b3);
    }
    for (; i < count; ++i) {
        const double* xi = x + i - tapsBefore;
        for (std::size_t p = 0; p < phases; ++p) {
            double sum = 0.0;
            for (std::size_t j = 0; j < taps; ++j) sum += h[j * phases + p] * xi[j];
            grid[i * phases + p] = sum;
        }
    }
}

// The vertex of the parabola through a grid maximum and its neighbours: within half a step of
// a crest, |y| is as good as quadratic.
double refine(double before, double best, double after) {
    const double curvature = 2.0 * best - before - after;
    if (before > best || after > best || !(curvature > 0.0)) return best;
    const double slope = after - before;
    return best + slope * slope / (8.0 * curvature);
}

// Four running maxima, so the loop is not one long chain of dependent comparisons.
double largestMagnitude(const double* x, std::size_t n) {
    double m[4] = {0.0, 0.0, 0.0, 0.0};
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4)
        for (int l = 0; l < 4; ++l) m[l] = std::max(m[l], std::fabs(x[i + l]));
    for (; i < n; ++i) m[0] = std::max(m[0], std::fabs(x[i]));
    return std::max(std::max(m[0], m[1]), std::max(m[2], m[3]));
}

}  // namespace

// The first interval examined is the first whose points read the first sample, 24 intervals
// before it, and like every other it has its lead: all silence.
BandLimitedPeakMeter::BandLimitedPeakMeter(double watchFromLin)
    : history_(lead + chunkIntervals + lag, 0.0),
      envelope_(chunkIntervals + 2 * widen),
      grid_((gridIntervals + 2) * phases),
      watchFrom_(watchFromLin),
      held_(lead + tapsAfter) {
    fineTaps();
    kernels::truePeakReach();
}

void BandLimitedPeakMeter::process(const float* in, std::size_t n) noexcept {
    while (n > 0) {
        const std::size_t m = std::min(n, history_.size() - held_);
        for (std::size_t i = 0; i < m; ++i) history_[held_ + i] = in[i];
        held_ += m;
        in += m;
        n -= m;
        if (held_ == history_.size()) run(chunkIntervals);
    }
}

void BandLimitedPeakMeter::finish() noexcept {
    if (finished_) return;
    finished_ = true;
    // Enough silence for the last interval whose points read the last sample to have its lag.
    static const float silence[tapsBefore + lag] = {};
    process(silence, tapsBefore + lag);
    run(held_ - lead - lag);
}

double BandLimitedPeakMeter::peak() const { return std::max(peak_, 1e-12); }

// Intervals from the one starting at history_[lead], with their lead and lag in history_.
void BandLimitedPeakMeter::run(std::size_t intervals) noexcept {
    const double* x = history_.data() + lead;
    const double samples = largestMagnitude(x, intervals);
    peak_ = std::max(peak_, samples);
    if (watchFrom_ <= 0.0) {
        examine(x, 0, intervals);
    } else {
        const double around = std::max({samples, largestMagnitude(x - lead, lead), largestMagnitude(x + intervals, lag)});
        if (around * kernels::truePeakReach() >= watchFrom_) watch(x, intervals);
    }
    std::memmove(history_.data(), history_.data() + intervals, (held_ - intervals) * sizeof(double));
    held_ -= intervals;
}

// Examines the intervals within `widen` of one where a sample or the 4× reading reaches the
// watch level, in runs, so that neighbouring intervals share their edge points.
void BandLimitedPeakMeter::watch(const double* x, std::size_t intervals) noexcept {
    // envelope_[m] is the 4× reading inside interval m − widen.
    double* envelope = envelope_.data();
    kernels::truePeakEnvelope(x - widen + kernels::truePeakEnvelopeDelay, intervals + 2 * widen, envelope);
    std::size_t reachedBelow = 0;  // intervals under this index are within reach of a loud one
    std::size_t start = 0;
    bool open = false;
    for (std::size_t m = 0; m < intervals + 2 * widen; ++m) {
        const double* s = x - widen + m;
        if (envelope[m] >= watchFrom_ || std::fabs(s[0]) >= watchFrom_ || std::fabs(s[1]) >= watchFrom_)
            reachedBelow = m + 1;
        if (m < 2 * widen) continue;
        const std::size_t k = m - 2 * widen;
        const bool watched = k < reachedBelow;
        if (watched && !open) start = k;
        if (!watched && open) examine(x, start, k);
        open = watched;
    }
    if (open) examine(x, start, intervals);
}

void BandLimitedPeakMeter::examine(const double* x, std::size_t from, std::size_t to) noexcept {
    const double* h = fineTaps().data();
    double* g = grid_.data();
    for (std::size_t s = from; s < to; s += gridIntervals) {
        const std::size_t e = std::min(to, s + gridIntervals);
        // One interval more on each side: a crest found at a sample has its neighbours there.
        interpolate(x + s - 1, e - s + 2, h, g);
        for (std::size_t i = 1; i <= e - s; ++i) {
            const double* v = g + i * phases;
            std::size_t best = 0;
            for (std::size_t p = 1; p <= phases; ++p)
                if (std::fabs(v[p]) > std::fabs(v[best])) best = p;
            peak_ = std::max(peak_, refine(std::fabs(v[best - 1]), std::fabs(v[best]), std::fabs(v[best + 1])));
        }
    }
}

double bandLimitedPeak(std::span<const float> channel) {
    BandLimitedPeakMeter meter;
    meter.process(channel.data(), channel.size());
    meter.finish();
    return meter.peak();
}

}  // namespace velmora
