#include "mastering/LinkedGain.h"

#include <algorithm>
#include <cmath>

#include "measurement/WorkerPool.h"

namespace velmora::linked {

namespace {

__attribute__((target_clones("arch=x86-64-v3", "default")))
void maxAbsInto(const float* x, std::size_t n, double* out) noexcept {
    for (std::size_t j = 0; j < n; ++j) {
        const double a = std::fabs(x[j]);
        out[j] = a > out[j] ? a : out[j];
    }
}

__attribute__((target_clones("arch=x86-64-v3", "default")))
void multiply(float* x, const float* g, std::size_t n) noexcept {
    for (std::size_t i = 0; i < n; ++i) x[i] *= g[i];
}

__attribute__((target_clones("arch=x86-64-v3", "default")))
void scale(float* x, float g, std::size_t n) noexcept {
    for (std::size_t i = 0; i < n; ++i) x[i] *= g;
}

}  // namespace

void framePeaks(const Channels& channels, std::size_t begin, std::size_t n, double floor, double* out) noexcept {
    for (std::size_t j = 0; j < n; ++j) out[j] = floor;
    for (const auto& ch : channels) maxAbsInto(ch.data() + begin, n, out);
}

void framePeaks(std::span<const float* const> channels, std::size_t n, double floor, double* out) noexcept {
    for (std::size_t j = 0; j < n; ++j) out[j] = floor;
    for (const float* ch : channels) maxAbsInto(ch, n, out);
}

void applyCurve(Channels& channels, const float* gain) {
    const std::size_t n = frameCount(channels);
    parallelFor(channels.size(), [&](std::size_t c) { multiply(channels[c].data(), gain, std::min(n, channels[c].size())); });
}

void applyScalar(Channels& channels, float gain) {
    parallelFor(channels.size(), [&](std::size_t c) { scale(channels[c].data(), gain, channels[c].size()); });
}

}  // namespace velmora::linked
