#include "output/Album.h"

#include <algorithm>
#include <cmath>

#include "measurement/StreamingMeter.h"

namespace velmora {

Expected<AlbumTrack> measureAlbumTrack(const Programme& programme, std::span<const double> weights,
                                       const ProgressFn& progress) {
    const std::size_t channels = programme.channelCount(), frames = programme.frameCount();
    LoudnessAnalyzer analyzer({}, false);
    analyzer.prepare(channels, programme.sampleRate(), frames);
    auto pass = programme.read();
    std::vector<const float*> pointers(channels);
    for (std::size_t at = 0; at < frames;) {
        const std::size_t n = std::min(ProgrammePass::maxBlockFrames, frames - at);
        float* const* block = pass->next(n);
        if (!block) return pass->error();
        std::copy_n(block, channels, pointers.begin());
        analyzer.feed(pointers, n);
        analyzer.wait();  // the pass reuses its block at the next call
        at += n;
        if (progress) progress(double(at) / double(frames));
    }
    AlbumTrack track;
    const BlockEnergies blocks = analyzer.momentaryBlocks();
    const std::size_t count = blocks.empty() ? 0 : blocks.front().size();
    track.blockEnergies.assign(count, 0.0);
    for (std::size_t c = 0; c < blocks.size(); ++c) {
        const double w = c < weights.size() ? weights[c] : 1.0;
        for (std::size_t b = 0; b < count && b < blocks[c].size(); ++b) track.blockEnergies[b] += w * blocks[c][b];
    }
    const std::vector<double> one{1.0};
    track.integratedLUFS = LoudnessEngine::integratedLoudness({track.blockEnergies}, one);
    track.truePeakDB = analyzer.truePeakDB();
    return track;
}

double albumLoudness(const std::vector<AlbumTrack>& tracks) {
    std::vector<double> pooled;
    for (const AlbumTrack& t : tracks) pooled.insert(pooled.end(), t.blockEnergies.begin(), t.blockEnergies.end());
    const std::vector<double> one{1.0};
    return LoudnessEngine::integratedLoudness({pooled}, one);
}

Expected<AlbumPlan> planAlbum(const std::vector<AlbumTrack>& tracks, double targetLUFS, double ceilingDB) {
    AlbumPlan plan;
    plan.albumLUFS = albumLoudness(tracks);
    if (!std::isfinite(plan.albumLUFS)) return LoudnessError{LoudnessError::Code::tooQuiet};
    plan.gainDB = targetLUFS - plan.albumLUFS;
    // A track whose peak, raised by the gain, lands more than 12 dB over the ceiling would need
    // that much limiting: the gain is the loudest that spares every track.
    double allowed = plan.gainDB;
    for (const AlbumTrack& t : tracks)
        if (std::isfinite(t.integratedLUFS)) allowed = std::min(allowed, ceilingDB + albumMaxLimitingDB - t.truePeakDB);
    if (allowed < plan.gainDB) {
        plan.loweredDB = plan.gainDB - allowed;
        plan.gainDB = allowed;
    }
    for (const AlbumTrack& t : tracks) plan.trackTargets.push_back(t.integratedLUFS + plan.gainDB);
    return plan;
}

}  // namespace velmora
