#include "measurement/ProgrammeMeasure.h"

#include <algorithm>
#include <vector>

#include "measurement/StreamingMeter.h"

namespace velmora {

Expected<LoudnessResult> measureStreamed(const Programme& programme, std::span<const double> weights,
                                         const ProgressFn& progress, ProgrammeDetail* detail) {
    LoudnessAnalyzer analyzer({}, false);
    const std::size_t frames = programme.frameCount(), channels = programme.channelCount();
    analyzer.prepare(channels, programme.sampleRate(), frames);
    auto pass = programme.read();
    std::vector<const float*> block(channels);
    for (std::size_t at = 0; at < frames; at += ProgrammePass::maxBlockFrames) {
        const std::size_t n = std::min(ProgrammePass::maxBlockFrames, frames - at);
        float* const* samples = pass->next(n);
        if (!samples) return pass->error();
        block.assign(samples, samples + channels);
        analyzer.feed(block, n);
        analyzer.wait();  // the next block reuses the same memory
        if (progress) progress(double(at + n) / double(frames));
    }
    if (detail) *detail = analyzer.detail(weights);
    return analyzer.result(weights);
}

}  // namespace velmora
