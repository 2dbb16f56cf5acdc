#include "mastering/LimiterDetector.h"

#include <algorithm>
#include <cmath>

#include "measurement/Kernels.h"

namespace velmora {

namespace {

constexpr std::size_t history = kernels::truePeakHistory;

__attribute__((target_clones("arch=x86-64-v3", "default")))
void scaleRun(const float* x, std::size_t n, double gainLin, double* out) noexcept {
    for (std::size_t i = 0; i < n; ++i) out[i] = double(float(gainLin * double(x[i])));
}

__attribute__((target_clones("arch=x86-64-v3", "default")))
float largestMagnitude(const float* x, std::size_t n) noexcept {
    float peak = 0.0f;
    for (std::size_t i = 0; i < n; ++i) {
        const float a = std::fabs(x[i]);
        peak = a > peak ? a : peak;
    }
    return peak;
}

__attribute__((target_clones("arch=x86-64-v3", "default")))
void mergeReadings(const double* x, const double* interpolated, std::size_t n, float* out) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
        const double a = std::fabs(x[i]);
        const double m = interpolated[i] > a ? interpolated[i] : a;
        // Nudged up by more than float rounding can take off, so the stored reading is never
        // under the value it stands for.
        const float f = float(m * (1.0 + 0x1p-23));
        out[i] = f > out[i] ? f : out[i];
    }
}

}  // namespace

LimiterDetector::LimiterDetector()
    : samples_(history + chunkFrames + lookAhead, 0.0), interpolated_(chunkFrames, 0.0) {}

void LimiterDetector::readings(std::span<const float* const> channels, std::size_t frames, std::size_t begin,
                               std::size_t n, double gainLin, double floorLin, float* out) noexcept {
    const double bound = kernels::truePeakReach();
    while (n > 0) {
        const std::size_t m = std::min(n, chunkFrames);
        std::fill(out, out + m, 0.0f);
        for (const float* channel : channels) {
            // samples_[history + i] holds frame begin + i, for i from −11 to m + 6.
            const std::size_t from = begin >= history ? begin - history : 0;
            const std::size_t to = std::min(frames, begin + m + lookAhead);
            if (to <= from) continue;
            // Most of a programme sits well under the limiter's aim: one look at the floats.
            if (gainLin * double(largestMagnitude(channel + from, to - from)) * bound * (1.0 + 1e-6) < floorLin)
                continue;
            double* x = samples_.data() + history;
            const std::size_t lead = history - (begin - from);
            std::fill(samples_.begin(), samples_.begin() + std::ptrdiff_t(lead), 0.0);
            scaleRun(channel + from, to - from, gainLin, samples_.data() + lead);
            std::fill(samples_.begin() + std::ptrdiff_t(lead + (to - from)), samples_.end(), 0.0);
            // The values between x[i] and x[i + 1] come out of the kernel at i + 6.
            kernels::truePeakEnvelope(x + lookAhead, m, interpolated_.data());
            mergeReadings(x, interpolated_.data(), m, out);
        }
        begin += m;
        out += m;
        n -= m;
    }
}

}  // namespace velmora
