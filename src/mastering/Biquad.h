#pragma once
// Second-order sections of the two equalisers: cookbook designs in double precision, run in
// transposed direct form II with double state over float samples.
#include <span>
#include <vector>

#include "mastering/MasterParams.h"
#include "measurement/LoudnessEngine.h"

namespace velmora {

// Coefficients already divided by a0.
struct Biquad {
    double b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
    bool operator==(const Biquad&) const = default;
};

struct BiquadState {
    double z1 = 0, z2 = 0;
};

// Frequencies in Hz, gains in dB; none of the designs allocates. Nothing is validated: a
// frequency at or above Nyquist or a Q of zero gives non-finite coefficients, so the controls
// must keep them in range.
Biquad designHighPass(double fs, double freq);                       // Q 0.7071
Biquad designLowShelf(double fs, double freq, double gainDB);        // shelf slope 1
Biquad designPeaking(double fs, double freq, double gainDB, double q);
Biquad designHighShelf(double fs, double freq, double gainDB);       // shelf slope 1

// A band whose gain is within ±0.05 dB is left out of a list.
inline constexpr double eqBandGateDB = 0.05;

// Empty unless eqOn: high-pass (hpfOn), low shelf, peak 1, peak 2, high shelf. Allocates.
std::vector<Biquad> buildFiveBandEQ(const MasterParams& params, double fs);
// Empty unless teqOn: low shelf, mid peak, high shelf. Allocates.
std::vector<Biquad> buildTonalEQ(const MasterParams& params, double fs);

// One section over one channel in place, from zero state. Does not allocate.
void applyBiquad(std::span<float> samples, const Biquad& section) noexcept;

// Every section in list order on every channel (LFE included), each from zero state; one task
// per channel. The output equals running applyBiquad section after section. An empty list
// starts nothing and leaves the buffer untouched. Allocates only the worker threads.
void applyEQ(Channels& channels, const std::vector<Biquad>& sections);

}  // namespace velmora
