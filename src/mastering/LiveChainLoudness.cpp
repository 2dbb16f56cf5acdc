#include "mastering/LiveChainLoudness.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "audio/StereoFold.h"
#include "mastering/Equalisers.h"
#include "mastering/OnlineMasteringStreamer.h"
#include "measurement/StreamingMeter.h"

namespace velmora {

namespace {

constexpr std::array<double, 2> stereo{1.0, 1.0};

// Both sides' integrated loudness of what the analysers were fed; tooQuiet when either has none.
Expected<LiveChainLoudness> loudnessSoFar(const LoudnessAnalyzer& plain, const LoudnessAnalyzer& processed) {
    const LiveChainLoudness l{plain.result(stereo).integratedLUFS, processed.result(stereo).integratedLUFS};
    if (!std::isfinite(l.sourceLUFS) || !std::isfinite(l.processedLUFS)) return LoudnessError{LoudnessError::Code::tooQuiet};
    return l;
}

}  // namespace

bool liveChainIsNeutral(const MasterParams& params) {
    if (params.compOn) return false;
    // The rate only places the bands: whether any counts does not depend on it.
    return !params.eqOn || buildLiveCascade(params, 48000).sections.empty();
}

Expected<LiveChainLoudness> measureLiveChain(const Programme& source, const MasterParams& params,
                                             const std::atomic<bool>& cancelled, const PartialLoudness& partial) {
    const std::size_t frames = source.frameCount(), channels = source.channelCount();
    const double rate = source.sampleRate();
    LoudnessAnalyzer plain({}, false), processed({}, false);
    plain.prepare(2, rate, frames);
    processed.prepare(2, rate, frames);
    // At the file's rate: the filters' responses, and so the loudness, are the device's to within
    // the measurement's own precision.
    OnlineMasteringStreamer chain;
    chain.initFolded({}, rate, rate);
    chain.update(params, 0.0);

    constexpr std::size_t block = ProgrammePass::maxBlockFrames;
    std::vector<float> dryL(block), dryR(block), wetL(block), wetR(block);
    std::vector<const float*> in(channels);
    const std::size_t every = std::size_t(partialSeconds * rate);
    std::size_t nextPartial = every;
    auto pass = source.read();
    for (std::size_t at = 0; at < frames; at += block) {
        if (cancelled.load(std::memory_order_relaxed)) return LoudnessError{LoudnessError::Code::interrupted};
        const std::size_t n = std::min(block, frames - at);
        float* const* samples = pass->next(n);
        if (!samples) return pass->error();
        in.assign(samples, samples + channels);
        // Folded as the listening stream folds: the pair the listener hears on either side.
        foldToStereo(in.data(), channels, n, dryL.data(), dryR.data());
        std::copy_n(dryL.data(), n, wetL.data());
        std::copy_n(dryR.data(), n, wetR.data());
        chain.processBlock(wetL.data(), wetR.data(), n);
        plain.feed({dryL.data(), dryR.data()}, n);
        processed.feed({wetL.data(), wetR.data()}, n);
        plain.wait();
        processed.wait();
        if (partial && at + n >= nextPartial && at + n < frames) {
            nextPartial = at + n + every;
            if (const auto sofar = loudnessSoFar(plain, processed)) partial(*sofar);
        }
    }
    return loudnessSoFar(plain, processed);
}

}  // namespace velmora
