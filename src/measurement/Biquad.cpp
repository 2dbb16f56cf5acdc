#include "measurement/Biquad.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace velmora {

namespace {

struct Trig {
    double cs, sn;
};

Trig trig(double fs, double freq) {
    const double w0 = 2.0 * std::numbers::pi * freq / fs;
    return {std::cos(w0), std::sin(w0)};
}

Biquad normalised(double b0, double b1, double b2, double a0, double a1, double a2) {
    return {b0 / a0, b1 / a0, b2 / a0, a1 / a0, a2 / a0};
}

// Shelf slope S = 1 gives alpha = sin(w0)/2 · √2.
constexpr double shelfRoot2 = 1.4142135623730951;

}  // namespace

Biquad designHighPass(double fs, double freq, double q) {
    const auto [cs, sn] = trig(fs, freq);
    const double alpha = sn / (2 * q);
    return normalised((1 + cs) / 2, -(1 + cs), (1 + cs) / 2, 1 + alpha, -2 * cs, 1 - alpha);
}

Biquad designLowPass(double fs, double freq, double q) {
    const auto [cs, sn] = trig(fs, freq);
    const double alpha = sn / (2 * q);
    return normalised((1 - cs) / 2, 1 - cs, (1 - cs) / 2, 1 + alpha, -2 * cs, 1 - alpha);
}

Biquad designPeaking(double fs, double freq, double gainDB, double q) {
    const auto [cs, sn] = trig(fs, freq);
    const double A = std::pow(10.0, gainDB / 40.0);
    const double alpha = sn / (2 * q);
    return normalised(1 + alpha * A, -2 * cs, 1 - alpha * A, 1 + alpha / A, -2 * cs, 1 - alpha / A);
}

Biquad designLowShelf(double fs, double freq, double gainDB) {
    const auto [cs, sn] = trig(fs, freq);
    const double A = std::pow(10.0, gainDB / 40.0);
    const double alpha = sn / 2 * shelfRoot2;
    const double k = 2 * std::sqrt(A) * alpha;
    return normalised(A * ((A + 1) - (A - 1) * cs + k), 2 * A * ((A - 1) - (A + 1) * cs),
                      A * ((A + 1) - (A - 1) * cs - k), (A + 1) + (A - 1) * cs + k, -2 * ((A - 1) + (A + 1) * cs),
                      (A + 1) + (A - 1) * cs - k);
}

Biquad designHighShelf(double fs, double freq, double gainDB) {
    const auto [cs, sn] = trig(fs, freq);
    const double A = std::pow(10.0, gainDB / 40.0);
    const double alpha = sn / 2 * shelfRoot2;
    const double k = 2 * std::sqrt(A) * alpha;
    return normalised(A * ((A + 1) + (A - 1) * cs + k), -2 * A * ((A - 1) + (A + 1) * cs),
                      A * ((A + 1) + (A - 1) * cs - k), (A + 1) - (A - 1) * cs + k, 2 * ((A - 1) - (A + 1) * cs),
                      (A + 1) - (A - 1) * cs - k);
}

namespace {

// N sections in one pass over the samples. Each section's recurrence is a chain of dependent
// multiply-adds; running N of them side by side lets the chains overlap, where N separate
// passes would wait on each in turn. Between sections the sample is narrowed to float, so the
// result is bit for bit that of N separate passes.
template <int N>
__attribute__((always_inline)) inline void runSections(const Biquad* sec, BiquadState* st, float* x,
                                                       std::size_t n) noexcept {
    double b0[N], b1[N], b2[N], a1[N], a2[N], z1[N], z2[N];
    for (int k = 0; k < N; ++k) {
        b0[k] = sec[k].b0, b1[k] = sec[k].b1, b2[k] = sec[k].b2, a1[k] = sec[k].a1, a2[k] = sec[k].a2;
        z1[k] = st[k].s1, z2[k] = st[k].s2;
    }
    for (std::size_t i = 0; i < n; ++i) {
        float v = x[i];
        for (int k = 0; k < N; ++k) {
            const double in = v;
            const double y = z1[k] + b0[k] * in;
            z1[k] = z2[k] + b1[k] * in - a1[k] * y;
            z2[k] = b2[k] * in - a2[k] * y;
            v = float(y);
        }
        x[i] = v;
    }
    for (int k = 0; k < N; ++k) st[k] = std::isfinite(z1[k] + z2[k]) ? BiquadState{z1[k], z2[k]} : BiquadState{};
}

}  // namespace

__attribute__((target_clones("arch=x86-64-v3", "default")))
void applyBiquads(const Biquad* sec, BiquadState* st, std::size_t count, float* x, std::size_t n) noexcept {
    // Up to five side by side (the longest list the chain builds); measured faster than
    // smaller groups even though the coefficients no longer all fit in registers.
    while (count > 0) {
        const std::size_t m = std::min<std::size_t>(count, 5);
        switch (m) {
            case 1: runSections<1>(sec, st, x, n); break;
            case 2: runSections<2>(sec, st, x, n); break;
            case 3: runSections<3>(sec, st, x, n); break;
            case 4: runSections<4>(sec, st, x, n); break;
            default: runSections<5>(sec, st, x, n); break;
        }
        sec += m;
        st += m;
        count -= m;
    }
}

void applyBiquads(const Biquad* sec, std::size_t count, float* x, std::size_t n) noexcept {
    BiquadState fresh[5];
    while (count > 0) {
        const std::size_t m = std::min<std::size_t>(count, 5);
        std::fill_n(fresh, m, BiquadState{});
        applyBiquads(sec, fresh, m, x, n);
        sec += m;
        count -= m;
    }
}

}  // namespace velmora
