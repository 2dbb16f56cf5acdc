#include <cmath>

#include "measurement/Kernels.h"
#include "measurement/WorkerPool.h"

namespace velmora {

KWeightingFilter LoudnessEngine::kWeightingCoefficients(double fs) {
    KWeightingFilter f{};
    {
        const double K = std::tan(5284.078578647628 / fs);
        const double Q = 0.7071752369554196;
        const double Vh = 1.5848647011308556;
        const double Vb = 1.2587209302325617;
        const double a0 = 1.0 + K / Q + K * K;
        f.shelf = {(Vh + Vb * K / Q + K * K) / a0, 2.0 * (K * K - Vh) / a0, (Vh - Vb * K / Q + K * K) / a0,
                   2.0 * (K * K - 1.0) / a0, (1.0 - K / Q + K * K) / a0};
    }
    {
        const double K = std::tan(119.8061151453059 / fs);
        const double Q = 0.5003270373238773;
        const double a0 = 1.0 + K / Q + K * K;
        f.highPass = {1.0, -2.0, 1.0, 2.0 * (K * K - 1.0) / a0, (1.0 - K / Q + K * K) / a0};
    }
    return f;
}

Channels LoudnessEngine::kWeightChannels(const Channels& channels, double sampleRate) {
    const auto f = kWeightingCoefficients(sampleRate);
    Channels out(channels.size());
    for (std::size_t c = 0; c < channels.size(); ++c) out[c].resize(channels[c].size());
    parallelFor(channels.size(), [&](std::size_t c) {
        kernels::KWeightState st;
        kernels::kWeight(f, st, channels[c].data(), out[c].data(), channels[c].size());
    });
    return out;
}

namespace kernels {

__attribute__((target_clones("arch=x86-64-v3", "default")))
double kWeight(const KWeightingFilter& f, KWeightState& state, const float* in, float* out, std::size_t n) noexcept {
    // Locals so the recurrences stay in registers.
    const double b0 = f.shelf.b0, b1 = f.shelf.b1, b2 = f.shelf.b2, a1 = f.shelf.a1, a2 = f.shelf.a2;
    const double c0 = f.highPass.b0, c1 = f.highPass.b1, c2 = f.highPass.b2, d1 = f.highPass.a1,
                 d2 = f.highPass.a2;
    double s1 = state.shelf.s1, s2 = state.shelf.s2, t1 = state.highPass.s1, t2 = state.highPass.s2;
    double sum = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
        const double x = in[i];
        const double y = s1 + b0 * x;
        s1 = s2 + b1 * x - a1 * y;
        s2 = b2 * x - a2 * y;
        const double z = t1 + c0 * y;
        t1 = t2 + c1 * y - d1 * z;
        t2 = c2 * y - d2 * z;
        const float zf = float(z);
        if (out) out[i] = zf;
        sum += double(zf) * double(zf);
    }
    // A non-finite input would poison every later block; start again from rest instead.
    if (!std::isfinite(s1) || !std::isfinite(s2) || !std::isfinite(t1) || !std::isfinite(t2)) s1 = s2 = t1 = t2 = 0.0;
    state.shelf = {s1, s2};
    state.highPass = {t1, t2};
    return sum;
}

__attribute__((target_clones("arch=x86-64-v3", "default")))
double sumOfSquares(const float* x, std::size_t n) noexcept {
    // Four partial sums let the loop vectorise without reassociating one long chain.
    double acc[4] = {0, 0, 0, 0};
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4)
        for (int k = 0; k < 4; ++k) acc[k] += double(x[i + k]) * double(x[i + k]);
    for (; i < n; ++i) acc[0] += double(x[i]) * double(x[i]);
    return (acc[0] + acc[1]) + (acc[2] + acc[3]);
}

}  // namespace kernels
}  // namespace velmora
