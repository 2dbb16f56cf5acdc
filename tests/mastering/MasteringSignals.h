#pragma once
// Signals and reference responses for the mastering tests, computed independently of the code
// under test.
#include <cmath>
#include <complex>
#include <cstdint>
#include <numbers>
#include <vector>

#include "mastering/Equalisers.h"

namespace velmora::testsig {

inline constexpr double fs48 = 48000.0;
inline const std::vector<double> stereoWeights{1.0, 1.0};

inline double fromDB(double db) { return std::pow(10.0, db / 20.0); }
inline double toDB(double lin) { return 20.0 * std::log10(lin); }

// |H(e^jw)| in dB of one section, straight from its transfer function.
inline double responseDB(const Biquad& q, double freq, double fs) {
    const std::complex<double> z1 = std::polar(1.0, -2.0 * std::numbers::pi * freq / fs);
    return toDB(std::abs((q.b0 + q.b1 * z1 + q.b2 * z1 * z1) / (1.0 + q.a1 * z1 + q.a2 * z1 * z1)));
}

// Uniform noise in [−amplitude, amplitude), reproducible from the seed.
inline std::vector<float> noise(std::size_t frames, double amplitude, std::uint64_t seed) {
    std::vector<float> out(frames);
    for (auto& v : out) {
        std::uint64_t z = seed += 0x9E3779B97F4A7C15ull;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        v = float(amplitude * (double((z ^ (z >> 31)) >> 11) * 0x1.0p-52 - 1.0));
    }
    return out;
}

// ±peak on alternate frames, the peak stepping through `levels` (dBFS, frames): a peak
// detector sees exactly the level of each step.
inline std::vector<float> steps(const std::vector<std::pair<double, std::size_t>>& levels) {
    std::vector<float> out;
    for (auto [db, frames] : levels)
        for (std::size_t i = 0; i < frames; ++i) out.push_back(float(i % 2 ? -fromDB(db) : fromDB(db)));
    return out;
}

// amplitude · sin(2π · freq · i / fs).
inline std::vector<float> sine(std::size_t frames, double freq, double amplitude, double fs = fs48) {
    std::vector<float> out(frames);
    for (std::size_t i = 0; i < frames; ++i)
        out[i] = float(amplitude * std::sin(2 * std::numbers::pi * freq * double(i) / fs));
    return out;
}

inline Channels stereoNoise(std::size_t frames, double amplitude) {
    return {noise(frames, amplitude, 21), noise(frames, amplitude, 22)};
}

}  // namespace velmora::testsig
