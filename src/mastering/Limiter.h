#pragma once
// The look-ahead peak limiter that applies the conformity gain under the ceiling, and the
// estimate of how hard it will have to work.
#include "measurement/LoudnessEngine.h"

namespace velmora {

// The limiter aims this far under the ceiling (dB), a margin for the inter-sample peaks it
// cannot see; the true peak is measured afterwards.
inline constexpr double limiterMarginDB = 0.3;

// Look-ahead in frames at rate fs: round(1.5 ms), at least 1 (72 at 48 kHz).
std::size_t limiterDelayFrames(double fs);

// Deepest smoothed gain reduction (dB, ≥ 0) the limiter would apply to the buffer scaled by
// gainLin under ceilingDB (dBTP); 0 for an empty buffer. Allocates one chunk of doubles.
double plannedLimiterReduction(const Channels& channels, double fs, double gainLin, double ceilingDB);

// The buffer scaled by gainLin, limited 0.3 dB under the ceiling with 1 ms attack and 80 ms
// release smoothing, delayed by limiterDelayFrames(fs) (the first frames are silence, the last
// input frames are dropped: the length is kept), and clamped to ±10^(ceilingDB/20).
// extraHeadroomDB > 0 lowers both the aim and the clamp by that much, for a second run when
// the written file's true peak still came out over the ceiling. Channels are limited in
// parallel from one gain curve. Allocates the output, one float per frame for the gain curve,
// and the worker threads.
Channels limitToCeiling(const Channels& in, double fs, double gainLin, double ceilingDB,
                        double extraHeadroomDB = 0.0);

// The same in place, with no second buffer: the same result as limitToCeiling.
void limitToCeilingInPlace(Channels& channels, double fs, double gainLin, double ceilingDB,
                           double extraHeadroomDB = 0.0);

}  // namespace velmora
