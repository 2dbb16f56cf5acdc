#pragma once
// Narrowing of the loudness range towards lraTarget: a slow linked envelope compressor around
// the programme's own integrated loudness, and an optional refinement loop that holds the
// integrated loudness while it narrows further.
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "audio/LoudnessError.h"
#include "mastering/MasterParams.h"
#include "mastering/ProgrammeLoudness.h"
#include "measurement/LoudnessEngine.h"

namespace velmora {

// Ratio applied to the envelope's deviation from the reference: below 1 narrows (loud passages
// cut, quiet ones raised). Never below 0.3.
inline constexpr double lraMinimumRatio = 0.3;
// An LRA within this much above the target counts as reached (LU).
inline constexpr double lraTolerance = 0.5;

// Linked envelope (150 ms one-pole, rising and falling alike) over the loudest channel,
// compared with referenceLUFS taken as a peak-scale level; each frame's deviation in dB is
// scaled by `ratio`. In place. Allocates one float per frame and the worker threads.
void lraEnvelopeCompressInPlace(Channels& channels, double fs, double ratio, double referenceLUFS);
Channels lraEnvelopeCompress(Channels channels, double fs, double ratio, double referenceLUFS);

// Every sample multiplied by `gain` (float multiply), channels in parallel. Allocates only the
// worker threads (and nothing when taking the buffer by value and moving it back).
void applyGainInPlace(Channels& channels, float gain);
Channels applyGain(Channels channels, float gain);

// One step of the reduction: an envelope pass (ratio, around referenceLUFS), or a plain gain
// that brings the loudness back where the first pass left it.
struct LraStep {
    bool isGain = false;
    double ratio = 1.0, referenceLUFS = 0.0;
    float gain = 1.0f;
};

// The envelope pass over a programme that arrives block after block, its envelope carried from
// one block to the next: the same samples as lraEnvelopeCompressInPlace over the whole.
class StreamingEnvelope {
public:
    // Allocates its scratch.
    StreamingEnvelope(std::size_t channels, double fs, double ratio, double referenceLUFS);
    ~StreamingEnvelope();
    StreamingEnvelope(StreamingEnvelope&&) noexcept;
    // The next n frames of every channel, in place. Does not allocate.
    void process(float* const* channels, std::size_t n) noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

// The loudness of the programme once `steps` have run on it; an error when it could not be read.
using LraMeasure = std::function<Expected<ProgrammeLoudness>(const std::vector<LraStep>& steps)>;

// What reduceLRA does, as a list of steps decided by measuring the programme through the steps
// decided so far: the caller chooses whether each measurement runs over a buffer in memory or
// renders the programme again from its source. A gain step's effect on the loudness is exact
// (every block moves by the same dB), so it is added to the figures rather than measured.
// Empty unless lraOn.
Expected<std::vector<LraStep>> planLRA(const MasterParams& params, const LraMeasure& measure,
                                       const ProgressFn& progress = {});

// Nothing unless lraOn. One envelope pass when the LRA exceeds lraTarget + 0.5 LU, then, when
// lraIterative, up to four further passes that keep the integrated loudness of the first
// pass's output within 0.05 LU. Measurements use `weights` with the standard gating; one whose
// loudness is not finite or whose range is absent ends the stage with the buffer as it is.
// `progress` receives this stage's own fraction, 0 … 1. Works in place on the buffer it is
// given; allocates a gain curve of one float per frame per pass and the measurement's energy
// lists.
Channels reduceLRA(Channels channels, double fs, const MasterParams& params, std::span<const double> weights,
                   const ProgressFn& progress = {});

}  // namespace velmora
