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

#include "mastering/LimiterDetector.h"
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

// Deepest gain reduction (dB, ≥ 0) the limiter applies to the buffer scaled by gainLin under
// ceilingDB (dBTP): the attack reaches every frame's full need, so this is how far the loudest
// true peak of the scaled buffer stands over the limiter's aim. 0 for an empty buffer.
double plannedLimiterReduction(const Channels& channels, double fs, double gainLin, double ceilingDB);
// The same from the buffer's true peak (dBTP) when it is already known: no pass over the samples.
double plannedLimiterReduction(double truePeakDB, double gainLin, double ceilingDB);

// The limiter as a stream: frames go in block after block and as many come out, the input
// delayed by delay() frames (the first frames out are silence). Whole-programme knowledge is
// not needed: the look-ahead is local, so the output does not depend on how the programme is
// cut into blocks, and a master of any length runs in a few megabytes.
class StreamingLimiter {
public:
    static constexpr std::size_t maxBlockFrames = 65536;

    // The input scaled by gainLin and limited 0.3 dB under the ceiling (dBTP), clamped to
    // ±10^(ceilingDB/20); extraHeadroomDB > 0 lowers both the aim and the clamp by that much,
    // for another run when the written file still came out over the ceiling; every output
    // sample is then multiplied by 10^(−trimDB/20) (a plain cut after the limiter). Allocates
    // its window, scratch and worker threads.
    StreamingLimiter(std::size_t channels, double fs, double gainLin, double ceilingDB, double extraHeadroomDB = 0.0,
                     double trimDB = 0.0);
    ~StreamingLimiter();
    StreamingLimiter(const StreamingLimiter&) = delete;
    StreamingLimiter& operator=(const StreamingLimiter&) = delete;

    std::size_t channelCount() const { return channels_; }
    std::size_t delay() const { return delay_; }

    // The next n input frames of every channel in, the next n output frames out; n at most
    // maxBlockFrames. `out` may be `in`. Does not allocate.
    void process(const float* const* in, float* const* out, std::size_t n);

private:
    class Shaper;
    void compact();

    std::size_t channels_;
    double gainLin_;
    double aim_;
    float clamp_, trim_;
    std::size_t delay_, latency_;
    std::unique_ptr<Shaper> shaper_;
    // Input frames [base_, received_) of each channel, the oldest ones kept for the detector's
    // and the output's reach.
    std::vector<std::vector<float>> window_;
    std::vector<const float*> windowPointers_;
    std::size_t base_ = 0, received_ = 0;
    std::size_t read_ = 0;  // frames whose readings the shaper has had
    std::vector<float> gains_;
    std::vector<LimiterDetector> detectors_;  // one per thread
    WorkerPool pool_;
};

// The buffer through a StreamingLimiter: the same length, the first delay frames silence and
// the last input frames dropped. Channels are limited in parallel from one gain curve.
// Allocates the output and the limiter.
Channels limitToCeiling(const Channels& in, double fs, double gainLin, double ceilingDB,
                        double extraHeadroomDB = 0.0);

// The same in place, with no second buffer.
void limitToCeilingInPlace(Channels& channels, double fs, double gainLin, double ceilingDB,
                           double extraHeadroomDB = 0.0);

}  // namespace velmora
