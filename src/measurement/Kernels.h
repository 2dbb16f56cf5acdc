#pragma once
// Hot per-channel kernels of the measurement. None of them allocates; each works on one
// channel with its state passed in and out, so channels can run on separate threads.
#include <cstddef>

#include "measurement/Biquad.h"
#include "measurement/LoudnessEngine.h"

namespace velmora::kernels {

using SectionState = BiquadState;


struct KWeightState {
    SectionState shelf;
    SectionState highPass;
};

// K-weights n samples; each output is rounded to float (the stored form of the weighted
// signal) and written to `out` when it is not null. Returns the sum of the squared float
// outputs in double.
double kWeight(const KWeightingFilter& f, KWeightState& state, const float* in, float* out, std::size_t n) noexcept;

// True-peak taps: 4 phases of 12, phase q using h[q], h[q + 4], … h[q + 44].
inline constexpr int truePeakTaps = 48;
inline constexpr int truePeakHistory = 11;
extern const double truePeakFilter[truePeakTaps];

// Largest |x| and largest |interpolated value| over x[0 … n), where x[-11 … -1] must be
// readable (the previous samples, or zeros at the start of the channel).
double truePeakRun(const double* x, std::size_t n) noexcept;

// The interpolated part of the same reading, sample by sample: out[i] = max over the four
// phases of |y_q[i]|. The phases at i fall between x[i − 6] and x[i − 5] (the filter's delay is
// 5.875 samples), so a caller that needs the reading around frame k looks at out[k + 5] and
// out[k + 6]. x[-11 … -1] must be readable, as for truePeakRun.
void truePeakEnvelope(const double* x, std::size_t n, double* out) noexcept;
// How far a 4× interpolated value can stand over the largest |sample| among its taps: the
// largest sum of |taps| of one phase. Samples under level / reach cannot read at level.
double truePeakReach() noexcept;

// Frames from a frame to the interpolated points that lie after it.
inline constexpr std::size_t truePeakEnvelopeDelay = 6;

// Sum of x[i]² in double.
double sumOfSquares(const float* x, std::size_t n) noexcept;

}  // namespace velmora::kernels
