#include <cmath>
#include <limits>

#include "measurement/Kernels.h"
#include "measurement/LoudnessEngine.h"
#include "measurement/WorkerPool.h"

namespace velmora {

std::vector<double> LoudnessEngine::curveFromShortTermBlocks(const BlockEnergies& blocks, std::span<const double> weights,
                                                             double fs, std::size_t programmeFrames,
                                                             double stepSeconds) {
    if (blocks.empty() || fs <= 0 || !(stepSeconds > 0)) return {};
    const std::size_t hop = hopFrames(fs), window = shortTermBlockFrames(fs);
    const std::size_t count = blocks.front().size();
    const auto points = std::size_t(double(programmeFrames) / fs / stepSeconds) + 1;
    std::vector<double> curve(points, -std::numeric_limits<double>::infinity());
    for (std::size_t k = 0; k < points; ++k) {
        // The block whose window ends nearest the point's time, among those already full.
        const auto end = std::size_t(std::llround(double(k) * stepSeconds * fs));
        if (end < window) continue;
        const std::size_t j = (end - window + hop / 2) / hop;
        if (j >= count) continue;
        double sum = 0.0;
        for (std::size_t c = 0; c < blocks.size(); ++c) sum += (c < weights.size() ? weights[c] : 1.0) * blocks[c][j];
        if (sum > 0) curve[k] = loudnessOffset + 10.0 * std::log10(sum);
    }
    return curve;
}

std::vector<double> LoudnessEngine::shortTermCurve(const Channels& channels, std::span<const double> weights,
                                                   double fs, double stepSeconds) {
    if (channels.empty() || fs <= 0) return {};
    const std::size_t frames = channels[0].size();
    const std::size_t hop = hopFrames(fs);
    const std::size_t unitsPerWindow = (shortTermBlockFrames(fs) + hop / 2) / hop;
    const std::size_t units = frames / hop;
    const std::size_t blocks = units >= unitsPerWindow ? units - unitsPerWindow + 1 : 0;
    const auto filter = kWeightingCoefficients(fs);

    // Filtered 100 ms at a time, keeping only each stretch's sum, never a weighted copy.
    BlockEnergies shortTerm(channels.size());
    parallelFor(channels.size(), [&](std::size_t c) {
        std::vector<double> unit(units);
        kernels::KWeightState state;
        const float* x = channels[c].data();
        for (std::size_t u = 0; u < units; ++u) unit[u] = kernels::kWeight(filter, state, x + u * hop, nullptr, hop);
        auto& out = shortTerm[c];
        out.resize(blocks);
        double running = 0.0;
        for (std::size_t u = 0; u < std::min(units, unitsPerWindow); ++u) running += unit[u];
        for (std::size_t j = 0; j < blocks; ++j) {
            if (j > 0) running += unit[j + unitsPerWindow - 1] - unit[j - 1];
            out[j] = std::max(0.0, running) / double(unitsPerWindow * hop);
        }
    });
    return curveFromShortTermBlocks(shortTerm, weights, fs, frames, stepSeconds);
}

}  // namespace velmora
