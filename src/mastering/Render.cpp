#include "mastering/Render.h"

#include "mastering/Equalisers.h"
#include "mastering/Compressors.h"
#include "mastering/LoudnessRangeReduction.h"
#include "mastering/MidSide.h"

namespace velmora {

RenderResult renderMaster(Channels channels, const MasterParams& p, double fs, std::span<const double> weights,
                          const ProgressFn& progress) {
    // Job fractions: the render spans 0.02 … 0.6, the LRA stage (measurements) most of it.
    auto report = [&](double f) {
        if (progress) progress(f);
    };
    report(0.02);
    if (p.msOn) applyMidSide(channels, p.midGain, p.sideGain);
    report(0.05);
    applyEQ(channels, buildFiveBandEQ(p, fs));
    report(0.1);
    const double maxGR = busCompress(channels, fs, p);
    report(0.15);
    applyEQ(channels, buildTonalEQ(p, fs));
    report(0.2);
    channels = reduceLRA(std::move(channels), fs, p, weights, [&](double f) { report(0.2 + 0.4 * f); });
    report(0.6);
    return {std::move(channels), maxGR};
}

}  // namespace velmora
