#include "mastering/Conformance.h"

#include <cmath>

#include "mastering/Compressors.h"
#include "mastering/Limiter.h"
#include "mastering/ProgrammeLoudness.h"

namespace velmora {

Expected<ConformPlan> planConformance(Channels rendered, double fs, double targetLUFS, double ceilingDB,
                                      const MasterParams& params, std::span<const double> weights,
                                      std::optional<double> knownIntegratedLUFS) {
    const double I = knownIntegratedLUFS ? *knownIntegratedLUFS : measureProgramme(rendered, fs, weights, false).integratedLUFS;
    if (!std::isfinite(I)) return LoudnessError{LoudnessError::Code::tooQuiet};
    ConformPlan plan;
    plan.integratedBeforeLUFS = I;
    plan.gainLin = std::pow(10.0, (targetLUFS - I) / 20.0);
    if (params.autoProtectComp) {
        const double planned = plannedLimiterReduction(rendered, fs, plan.gainLin, ceilingDB);
        if (planned > params.autoProtectThresholdDB) {
            // Measured before the gain: the −12 dBFS threshold is relative to the chain output.
            protectCompress(rendered, fs);
            plan.protectionAppliedDB = planned;
            const double after = measureProgramme(rendered, fs, weights, false).integratedLUFS;
            if (std::isfinite(after)) plan.gainLin = std::pow(10.0, (targetLUFS - after) / 20.0);
        }
    }
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
