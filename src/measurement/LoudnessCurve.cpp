#include <cmath>
#include <limits>

#include "measurement/Kernels.h"
#include "measurement/LoudnessEngine.h"
#include "measurement/WorkerPool.h"

namespace velmora {

std::vector<double> LoudnessEngine::shortTermCurve(const Channels& channels, std::span<const double> weights,
                                                   double fs, double stepSeconds) {
    if (channels.empty() || fs <= 0 || !(stepSeconds > 0)) return {};
    const std::size_t frames = channels[0].size();
    const std::size_t hop = hopFrames(fs);
    const std::size_t unitsPerWindow = (shortTermBlockFrames(fs) + hop / 2) / hop;
    const std::size_t units = frames / hop;
    const auto filter = kWeightingCoefficients(fs);

    // Per-channel sums over 100 ms units, filtered in place without keeping a weighted copy.
    std::vector<std::vector<double>> unitSums(channels.size(), std::vector<double>(units));
    parallelFor(channels.size(), [&](std::size_t c) {
        kernels::KWeightState state;
        const float* x = channels[c].data();
        for (std::size_t u = 0; u < units; ++u) unitSums[c][u] = kernels::kWeight(filter, state, x + u * hop, nullptr, hop);
    });

    const auto points = std::size_t(double(frames) / fs / stepSeconds) + 1;
    std::vector<double> curve(points, -std::numeric_limits<double>::infinity());
    const double windowFrames = double(unitsPerWindow * hop);
    for (std::size_t k = 0; k < points; ++k) {
        const auto endUnit = std::size_t(std::llround(double(k) * stepSeconds * fs / double(hop)));
        if (endUnit < unitsPerWindow || endUnit > units) continue;
        double sum = 0.0;
        for (std::size_t c = 0; c < channels.size(); ++c) {
            double z = 0.0;
            for (std::size_t u = endUnit - unitsPerWindow; u < endUnit; ++u) z += unitSums[c][u];
            sum += (c < weights.size() ? weights[c] : 1.0) * z / windowFrames;
        }
        if (sum > 0) curve[k] = loudnessOffset + 10.0 * std::log10(sum);
    }
    return curve;
}

}  // namespace velmora
