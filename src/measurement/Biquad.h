#pragma once
// Second-order sections: the one record every filter of Velmora uses, the cookbook designs in
// double precision, and their run in transposed direct form II with double state over float
// samples. The measurement, the chain and the test signals all draw their sections from here.
#include <cstddef>
#include <span>

namespace velmora {

// Coefficients already divided by a0.
struct Biquad {
    double b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
    bool operator==(const Biquad&) const = default;
};

// Transposed direct-form II memories of one section, carried from one block to the next.
struct BiquadState {
    double s1 = 0.0;
    double s2 = 0.0;
};

// A section that passes its input through: the second stage of a single-section run.
inline constexpr Biquad identitySection{};

// Frequencies in Hz, gains in dB; none of the designs allocates. Nothing is validated: a
// frequency at or above Nyquist or a Q of zero gives non-finite coefficients, so the controls
// must keep them in range. The Q of the passes is a parameter rather than 1/√2 so each
// caller's coefficients stay bit for bit what they have always been (0.707, 0.7071).
Biquad designHighPass(double fs, double freq, double q = 0.7071);
Biquad designLowPass(double fs, double freq, double q);
Biquad designLowShelf(double fs, double freq, double gainDB);  // shelf slope 1
Biquad designPeaking(double fs, double freq, double gainDB, double q);
Biquad designHighShelf(double fs, double freq, double gainDB);  // shelf slope 1

// `count` sections in list order over one channel in place, each from zero state; the sample is
// narrowed to float between sections. Does not allocate.
void applyBiquads(const Biquad* sections, std::size_t count, float* samples, std::size_t n) noexcept;
// The same from the memories in `states` (one per section), which are left as the next block
// needs them; memories that went non-finite start again from zero. Does not allocate.
void applyBiquads(const Biquad* sections, BiquadState* states, std::size_t count, float* samples, std::size_t n) noexcept;
inline void applyBiquad(std::span<float> samples, const Biquad& section) noexcept {
    applyBiquads(&section, 1, samples.data(), samples.size());
}

}  // namespace velmora
