#pragma once
// The look-ahead true-peak limiter that applies the conformity gain under the ceiling, and the
// estimate of how hard it will have to work.
//
// The detector reads what a true-peak meter reads: every frame's sample and the 4×
// interpolated values between it and the next, over all channels. The gain a frame needs is
// held over the interpolator's reach on both sides and reached through a 1 ms linear attack
// inside the look-ahead, so the gain is already down, and steady, on every sample that shapes
// an inter-sample crest. Recovery is an 80 ms one-pole release. The clamp at the ceiling is
// only a last guard.
#include <memory>
#include <vector>

#include "measurement/LoudnessEngine.h"
#include "measurement/WorkerPool.h"

namespace velmora {

// The limiter aims this far under the ceiling (dB): room for the rounding of the gain curve
// across an interpolator's taps, and for what rate conversion and quantisation add.
inline constexpr double limiterMarginDB = 0.3;

// Attack ramp in frames at rate fs: round(1 ms), at least 1.
std::size_t limiterAttackFrames(double fs);

// Look-ahead in frames at rate fs: round(1.5 ms) (72 at 48 kHz), or the attack plus the
// interpolator's reach (11 frames) when that is longer, as it is below 22 kHz.
std::size_t limiterDelayFrames(double fs);

// The detector's loudest reading of the buffer as it is (linear): the largest |sample| or 4×
// interpolated value over every channel. Allocates scratch and the worker threads.
double limiterDetectorPeak(const Channels& channels);

// Deepest gain reduction (dB, ≥ 0) the limiter applies to the buffer scaled by gainLin under
// ceilingDB (dBTP): the attack reaches every frame's full need, so this is how far the loudest
// true peak of the scaled buffer stands over the limiter's aim. 0 for an empty buffer.
double plannedLimiterReduction(const Channels& channels, double fs, double gainLin, double ceilingDB);
// The same from the buffer's true peak (dBTP) when it is already known: no pass over the samples.
double plannedLimiterReduction(double truePeakDB, double gainLin, double ceilingDB);

// The buffer scaled by gainLin and limited 0.3 dB under the ceiling, delayed by
// limiterDelayFrames(fs) (the first frames are silence, the last input frames are dropped: the
// length is kept), and clamped to ±10^(ceilingDB/20). extraHeadroomDB > 0 lowers both the aim
// and the clamp by that much, for another run when the written file still came out over the
// ceiling. Channels are limited in parallel from one gain curve. Allocates the output, one
// float per frame for the gain curve, and the worker threads.
Channels limitToCeiling(const Channels& in, double fs, double gainLin, double ceilingDB,
                        double extraHeadroomDB = 0.0);

// The limiter's output computed a block at a time as it is asked for, so a master can be
// written without a second copy of the programme: the same samples as limitToCeiling, each
// then multiplied by 10^(−trimDB/20) (a plain cut after the limiter).
class LimitedProgramme {
public:
    // Keeps a reference to `in`. Allocates the gain curve (one float per frame), one block per
    // channel and the worker threads.
    LimitedProgramme(const Channels& in, double fs, double gainLin, double ceilingDB, double extraHeadroomDB = 0.0,
                     double trimDB = 0.0);
    std::size_t channelCount() const { return in_.size(); }
    std::size_t frameCount() const;
    // Output frames [begin, begin + n) of every channel, n at most blockFrames; valid until the
    // next call. Does not allocate.
    const float* const* block(std::size_t begin, std::size_t n);
    static constexpr std::size_t blockFrames = 65536;

private:
    const Channels& in_;
    std::unique_ptr<float[]> gain_;
    double gainLin_;
    float clamp_, trim_;
    std::size_t delay_;
    std::vector<std::vector<float>> out_;
    std::vector<const float*> pointers_;
    WorkerPool pool_;
};

// The same in place, with no second buffer: the same result as limitToCeiling.
void limitToCeilingInPlace(Channels& channels, double fs, double gainLin, double ceilingDB,
                           double extraHeadroomDB = 0.0);

}  // namespace velmora
