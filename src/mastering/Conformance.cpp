#include "mastering/Conformance.h"

#include <algorithm>
#include <cmath>

#include "mastering/Compressors.h"
#include "mastering/Limiter.h"
#include "mastering/LinkedGain.h"
#include "mastering/ProgrammeLoudness.h"

namespace velmora {

Expected<ConformGain> conformityGain(double I, double truePeakDB, double targetLUFS, double ceilingDB,
                                     const MasterParams& params) {
    if (!std::isfinite(I)) return LoudnessError{LoudnessError::Code::tooQuiet};
    ConformGain g;
    g.integratedBeforeLUFS = I;
    g.gainLin = std::pow(10.0, (targetLUFS - I) / 20.0);
    if (params.autoProtectComp) {
        // The limiter's deepest reduction is how far the loudest true peak stands over its aim.
        g.plannedReductionDB = plannedLimiterReduction(truePeakDB, g.gainLin, ceilingDB);
        g.protect = g.plannedReductionDB > params.autoProtectThresholdDB;
    }
    return g;
}

Expected<ConformGain> conformityGain(const Channels& rendered, double fs, double targetLUFS, double ceilingDB,
                                     const MasterParams& params, std::span<const double> weights,
                                     std::optional<double> knownIntegratedLUFS, std::optional<double> knownTruePeakDB) {
    const double I = knownIntegratedLUFS ? *knownIntegratedLUFS : measureProgramme(rendered, fs, weights, false).integratedLUFS;
    if (!std::isfinite(I)) return LoudnessError{LoudnessError::Code::tooQuiet};
    const double peak = knownTruePeakDB                              ? *knownTruePeakDB
                        : linked::frameCount(rendered) == 0          ? -240.0
                                                                     : LoudnessEngine::measureTruePeak(rendered);
    return conformityGain(I, peak, targetLUFS, ceilingDB, params);
}

void applyProtection(Channels& rendered, double fs, double targetLUFS, std::span<const double> weights,
                     ConformGain& gain) {
    // Measured before the gain: the −12 dBFS threshold is relative to the chain output.
    protectCompress(rendered, fs);
    const double after = measureProgramme(rendered, fs, weights, false).integratedLUFS;
    if (std::isfinite(after)) gain.gainLin = std::pow(10.0, (targetLUFS - after) / 20.0);
}

Expected<ConformPlan> planConformance(Channels rendered, double fs, double targetLUFS, double ceilingDB,
                                      const MasterParams& params, std::span<const double> weights,
                                      std::optional<double> knownIntegratedLUFS) {
    auto gain = conformityGain(rendered, fs, targetLUFS, ceilingDB, params, weights, knownIntegratedLUFS);
    if (!gain) return gain.error();
    if (gain->protect) applyProtection(rendered, fs, targetLUFS, weights, *gain);
    ConformPlan plan;
    plan.integratedBeforeLUFS = gain->integratedBeforeLUFS;
    plan.gainLin = gain->gainLin;
    plan.protectionAppliedDB = gain->protect ? gain->plannedReductionDB : 0.0;
    plan.beforeLimiter = std::move(rendered);
    return plan;
}

Expected<ConformResult> conformMaster(Channels rendered, double fs, double targetLUFS, double ceilingDB,
                                      const MasterParams& params, std::span<const double> weights) {
    auto plan = planConformance(std::move(rendered), fs, targetLUFS, ceilingDB, params, weights);
    if (!plan) return plan.error();
    ConformPlan& p = plan.value();
    limitToCeilingInPlace(p.beforeLimiter, fs, p.gainLin, ceilingDB);
    return ConformResult{std::move(p.beforeLimiter), p.protectionAppliedDB, p.gainLin, p.integratedBeforeLUFS};
}

}  // namespace velmora
