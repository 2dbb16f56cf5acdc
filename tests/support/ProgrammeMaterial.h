#pragma once
// Dense, programme-like stereo material for the delivery tests: what a mix bus hands a
// mastering limiter, and what defeats a limiter that only sees samples.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <string>
#include <vector>

namespace velmora::test {

enum class Material {
    dense,    // pink noise under a slow envelope, kicks, hats, short bright bursts near Nyquist
    clipped,  // hard-clipped noise: flat tops and edges everywhere
    fs4,      // fs/4 at 45°: every crest lies between two samples, 3 dB over them
};

inline std::string name(Material m) {
    return m == Material::dense ? "dense" : m == Material::clipped ? "clipped" : "fs4";
}

inline std::vector<std::vector<float>> programme(Material kind, double fs, double seconds, std::uint32_t seed = 1) {
    const auto n = std::size_t(fs * seconds);
    std::vector<std::vector<float>> out(2, std::vector<float>(n));
    constexpr double pi = std::numbers::pi;
    for (std::size_t c = 0; c < 2; ++c) {
        std::mt19937 rng(seed * 7 + std::uint32_t(c));
        std::normal_distribution<double> white(0.0, 1.0);
        double b2 = 0, b3 = 0, b4 = 0, b5 = 0, b6 = 0, previous = 0, previous2 = 0;
        for (std::size_t i = 0; i < n; ++i) {
            const double t = double(i) / fs, w = white(rng);
            double v = 0;
            if (kind == Material::dense) {
                // Pink noise from about 100 Hz up (a sum of one-poles, −3 dB per octave), as a mix
                // bus holds it once its sub-bass rumble is filtered out.
                b2 = 0.96900 * b2 + w * 0.1538520;
                b3 = 0.86650 * b3 + w * 0.3104856;
                b4 = 0.55000 * b4 + w * 0.5329522;
                b5 = -0.7616 * b5 - w * 0.0168980;
                const double pink = (b2 + b3 + b4 + b5 + b6 + w * 0.5362) * 0.2;
                b6 = w * 0.115926;
                v += pink * (0.75 + 0.25 * std::sin(2 * pi * 0.3 * t));
                const double kickT = std::fmod(t, 0.5), hatT = std::fmod(t + 0.125, 0.25), zapT = std::fmod(t, 1.1);
                v += 0.3 * std::exp(-kickT / 0.06) * std::sin(2 * pi * (45 + 80 * std::exp(-kickT / 0.02)) * kickT);
                v += 0.2 * std::exp(-hatT / 0.02) * (w - previous2) * 0.5;  // bright: peaks at fs/4
                // Bright but band-limited, as any real programme is: 0.88 × Nyquist under a Hann window.
                if (zapT < 0.012)
                    v += 0.25 * (0.5 - 0.5 * std::cos(2 * pi * zapT / 0.012)) * std::sin(pi * 0.88 * double(i) + 0.7 * double(c));
            } else if (kind == Material::clipped) {
                v = std::clamp(w * 1.5, -1.0, 1.0);
            } else {
                v = std::sin(pi / 2 * double(i) + pi / 4);
            }
            previous2 = previous;
            previous = w;
            out[c][i] = float(v);
        }
    }
    // Delivered as a mix file is: its loudest sample at −1 dBFS.
    float peak = 0.0f;
    for (const auto& ch : out)
        for (float v : ch) peak = std::max(peak, std::fabs(v));
    if (kind == Material::dense && peak > 0.0f)
        for (auto& ch : out)
            for (auto& v : ch) v *= 0.891f / peak;
    return out;
}

}  // namespace velmora::test
