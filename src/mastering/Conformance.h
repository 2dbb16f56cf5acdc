#pragma once
// Bringing a rendered master to its delivery target: conformity gain from the integrated
// loudness, protection compressor when the limiter would work too hard, look-ahead limiter
// under the true-peak ceiling.
#include <optional>
#include <span>

#include "audio/LoudnessError.h"
#include "mastering/MasterParams.h"
#include "measurement/LoudnessEngine.h"

namespace velmora {

// Everything decided before the limiter, so a caller can limit again with extra headroom
// when the written file's true peak came out over the ceiling.
struct ConformPlan {
    Channels beforeLimiter;            // the rendered buffer, after protection if inserted
    double gainLin = 1;                // conformity gain the limiter applies
    double protectionAppliedDB = 0;    // planned reduction that called in the protection, else 0
    double integratedBeforeLUFS = 0;   // the rendered buffer's integrated loudness
};

struct ConformResult {
    Channels channels;  // limited, same length and rate as the rendered buffer
    double protectionAppliedDB = 0;
    double gainLin = 1;
    double integratedBeforeLUFS = 0;
};

// The conformity gain of a rendered buffer and whether the protection compressor must come
// first, decided without touching the buffer.
struct ConformGain {
    double gainLin = 1;
    double integratedBeforeLUFS = 0;
    double plannedReductionDB = 0;  // of the limiter at gainLin, when autoProtectComp is on
    bool protect = false;           // planned reduction over autoProtectThresholdDB
};

// Fails with tooQuiet when the buffer's integrated loudness is not finite. What the caller
// already measured of this very buffer (integrated loudness with these weights, 4× true peak)
// is not measured again.
Expected<ConformGain> conformityGain(const Channels& rendered, double fs, double targetLUFS, double ceilingDB,
                                     const MasterParams& params, std::span<const double> weights,
                                     std::optional<double> knownIntegratedLUFS = std::nullopt,
                                     std::optional<double> knownTruePeakDB = std::nullopt);

// The same from the buffer's integrated loudness and 4× true peak, already measured.
Expected<ConformGain> conformityGain(double integratedLUFS, double truePeakDB, double targetLUFS, double ceilingDB,
                                     const MasterParams& params);

// The protection compressor in place, and the gain measured again after it.
void applyProtection(Channels& rendered, double fs, double targetLUFS, std::span<const double> weights,
                     ConformGain& gain);

// targetLUFS is the norm's loudness, ceilingDB its true-peak ceiling (dBTP); params supplies
// autoProtectComp and autoProtectThresholdDB. Fails with tooQuiet when the rendered buffer's
// integrated loudness is not finite. Works in place on the buffer it is given; allocates the
// measurement's energy lists, and the protection's gain curve when inserted. A caller that
// already knows the buffer's integrated loudness with these weights passes it in
// `knownIntegratedLUFS`, and the buffer is not measured again.
Expected<ConformPlan> planConformance(Channels rendered, double fs, double targetLUFS, double ceilingDB,
                                      const MasterParams& params, std::span<const double> weights,
                                      std::optional<double> knownIntegratedLUFS = std::nullopt);

// planConformance followed by the limiter, in place: no second buffer.
Expected<ConformResult> conformMaster(Channels rendered, double fs, double targetLUFS, double ceilingDB,
                                      const MasterParams& params, std::span<const double> weights);

}  // namespace velmora
