#include "measurement/ProgrammeDetail.h"

#include <algorithm>
#include <cmath>

#include "measurement/StreamingMeter.h"

namespace velmora {

ProgrammeDetail LoudnessAnalyzer::detail(std::span<const double> weights) const {
    ProgrammeDetail d;
    d.sampleRate = sampleRate_;
    if (meters_.empty()) return d;
    const auto momentary = momentaryBlocks();
    d.history = loudnessHistory(momentary, shortTermBlocks(), weights, frames(), sampleRate_);
    const auto loudness = channelContributions(momentary, weights);
    const auto byStart = [](const PeakRun& a, const PeakRun& b) { return a.startFrame < b.startFrame; };
    for (std::size_t c = 0; c < meters_.size(); ++c) {
        const TruePeakMeter& peaks = meters_[c]->peaks();
        d.channels.push_back({c < loudness.size() ? loudness[c] : -INFINITY, 20.0 * std::log10(peaks.peak())});
        const PeakRunRecorder* runs = peaks.runs();
        if (!runs) continue;
        for (std::size_t k = 0; k < overLevelsDB.size(); ++k) {
            const auto r = runs->overRuns(k);
            d.overRuns[k].insert(d.overRuns[k].end(), r.begin(), r.end());
            d.droppedOverRuns[k] += runs->droppedOverRuns(k);
        }
        const auto clips = runs->clipRuns();
        d.clipRuns.insert(d.clipRuns.end(), clips.begin(), clips.end());
        d.droppedClipRuns += runs->droppedClipRuns();
    }
    for (auto& runs : d.overRuns) std::sort(runs.begin(), runs.end(), byStart);
    std::sort(d.clipRuns.begin(), d.clipRuns.end(), byStart);
    return d;
}

}  // namespace velmora
