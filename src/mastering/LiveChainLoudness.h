#pragma once
// How loud the live chain plays a programme, beside the programme itself, both as the listener
// hears them: folded to stereo. Measured off the real-time thread, so that the source side of an
// A/B comparison can be played at the loudness of the processed side and the ear judges tone and
// dynamics rather than level.
#include <atomic>
#include <functional>

#include "audio/LoudnessError.h"
#include "audio/ProgrammeStream.h"
#include "mastering/MasterParams.h"

namespace velmora {

struct LiveChainLoudness {
    double sourceLUFS = 0;     // integrated, of the stereo fold
    double processedLUFS = 0;  // integrated, of the fold through the live chain
    // What the source side is raised (or lowered) by to sound as loud as the processed side.
    double matchGainDB() const { return processedLUFS - sourceLUFS; }
};

// Whether the live chain leaves every sample as it is (no equaliser band that counts, no bus
// compressor): its output is then the source, and the match is 0 dB without reading anything.
bool liveChainIsNeutral(const MasterParams& params);

// The loudness of what has been read so far: an estimate that a long file refines as it is read.
using PartialLoudness = std::function<void(const LiveChainLoudness&)>;
inline constexpr double partialSeconds = 10.0;  // of programme between two partial figures

// Reads the programme once, both sides side by side. Fails with the programme's error, with
// tooQuiet when either side has no gated loudness, or with interrupted once `cancelled` is set
// (looked at every block). `partial`, when given, hears the figures so far every partialSeconds
// of programme, on the calling thread.
Expected<LiveChainLoudness> measureLiveChain(const Programme& source, const MasterParams& params,
                                             const std::atomic<bool>& cancelled, const PartialLoudness& partial = {});

}  // namespace velmora
