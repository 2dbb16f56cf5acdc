#include <algorithm>
#include <cmath>

#include "measurement/LoudnessEngine.h"

namespace velmora {

std::optional<double> LoudnessEngine::computeLoudnessRange(const BlockEnergies& blocks, std::span<const double> w) {
    const auto edges = loudnessRangeEdges(blocks, w);
    if (!edges) return std::nullopt;
    return edges->second - edges->first;
}

std::optional<std::pair<double, double>> LoudnessEngine::loudnessRangeEdges(const BlockEnergies& blocks,
                                                                            std::span<const double> w) {
    if (blocks.empty() || blocks.front().size() < 2) return std::nullopt;
    const std::size_t n = blocks.front().size();
    // A channel without a weight counts fully rather than reading past the list.
    auto weight = [&](std::size_t i) { return i < w.size() ? w[i] : 1.0; };

    std::vector<std::size_t> kept;
    std::vector<double> loudness;
    std::vector<double> sums(blocks.size(), 0.0);
    for (std::size_t j = 0; j < n; ++j) {
        double s = 0.0;
        for (std::size_t i = 0; i < blocks.size(); ++i) s += weight(i) * blocks[i][j];
        if (s <= 0.0) continue;
        const double l = loudnessOffset + 10.0 * std::log10(s);
        if (l < absoluteGateLUFS) continue;
        kept.push_back(j);
        loudness.push_back(l);
        for (std::size_t i = 0; i < blocks.size(); ++i) sums[i] += blocks[i][j];
    }
    if (kept.size() < 2) return std::nullopt;

    double gamma = 0.0;
    for (std::size_t i = 0; i < blocks.size(); ++i) gamma += weight(i) * sums[i] / double(kept.size());
    gamma = gamma > 0.0 ? loudnessOffset + 10.0 * std::log10(gamma) : -INFINITY;

    std::vector<double> v;
    v.reserve(loudness.size());
    for (double l : loudness)
        if (l >= gamma - 20.0) v.push_back(l);
    if (v.size() <= 1) return std::nullopt;
    std::sort(v.begin(), v.end());

    auto percentile = [&](double p) {
        const double r = p / 100.0 * double(v.size() - 1);
        const auto lo = std::size_t(std::floor(r)), hi = std::size_t(std::ceil(r));
        return v[lo] + (r - double(lo)) * (v[hi] - v[lo]);
    };
    return std::pair{percentile(10.0), percentile(95.0)};
}

}  // namespace velmora
