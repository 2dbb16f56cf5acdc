#include <cmath>
#include <limits>

#include "measurement/LoudnessEngine.h"

namespace velmora {

namespace {
constexpr double negInf = -std::numeric_limits<double>::infinity();

// A channel without a weight counts fully rather than reading past the list.
double weightOf(std::span<const double> w, std::size_t i) { return i < w.size() ? w[i] : 1.0; }

double weightedSum(const BlockEnergies& blocks, std::span<const double> w, std::size_t j) {
    double sum = 0.0;
    for (std::size_t i = 0; i < blocks.size(); ++i) sum += weightOf(w, i) * blocks[i][j];
    return sum;
}

double loudnessOf(double weightedSum) {
    return weightedSum > 0.0 ? LoudnessEngine::loudnessOffset + 10.0 * std::log10(weightedSum) : negInf;
}

std::size_t blockCount(const BlockEnergies& blocks) { return blocks.empty() ? 0 : blocks.front().size(); }

// Loudness of the per-channel mean energies over the blocks `keep` accepts; -inf when none.
template <typename Keep>
double gatedMean(const BlockEnergies& blocks, std::span<const double> w, Keep keep) {
    std::vector<double> sums(blocks.size(), 0.0);
    std::size_t kept = 0;
    for (std::size_t j = 0; j < blockCount(blocks); ++j) {
        if (!keep(j)) continue;
        for (std::size_t i = 0; i < blocks.size(); ++i) sums[i] += blocks[i][j];
        ++kept;
    }
    if (kept == 0) return negInf;
    for (auto& s : sums) s /= double(kept);
    return LoudnessEngine::weightedLoudness(sums, w);
}
}  // namespace

double LoudnessEngine::weightedLoudness(std::span<const double> z, std::span<const double> w) {
    double sum = 0.0;
    for (std::size_t i = 0; i < z.size(); ++i) sum += weightOf(w, i) * z[i];
    return loudnessOf(sum);
}

double LoudnessEngine::maskedIntegratedLoudness(const BlockEnergies& blocks, std::span<const double> w,
                                                const std::vector<bool>& flags) {
    const std::size_t n = blockCount(blocks);
    std::vector<double> loudness(n);
    for (std::size_t j = 0; j < n; ++j) loudness[j] = loudnessOf(weightedSum(blocks, w, j));
    auto flagged = [&](std::size_t j) { return j < flags.size() && flags[j]; };
    // A block without loudness (-inf) fails every comparison below, so it never passes a gate.
    const double gammaA = gatedMean(blocks, w, [&](std::size_t j) {
        return flagged(j) && loudness[j] >= absoluteGateLUFS;
    });
    if (!std::isfinite(gammaA)) return negInf;
    return gatedMean(blocks, w, [&](std::size_t j) {
        return flagged(j) && loudness[j] >= absoluteGateLUFS && loudness[j] >= gammaA - relativeGateLU;
    });
}

std::vector<bool> LoudnessEngine::gatedBlocks(const BlockEnergies& blocks, std::span<const double> w) {
    const std::size_t n = blockCount(blocks);
    std::vector<double> loudness(n);
    for (std::size_t j = 0; j < n; ++j) loudness[j] = loudnessOf(weightedSum(blocks, w, j));
    std::vector<bool> kept(n, false);
    const double gammaA = gatedMean(blocks, w, [&](std::size_t j) { return loudness[j] >= absoluteGateLUFS; });
    if (!std::isfinite(gammaA)) return kept;
    for (std::size_t j = 0; j < n; ++j)
        kept[j] = loudness[j] >= absoluteGateLUFS && loudness[j] >= gammaA - relativeGateLU;
    return kept;
}

double LoudnessEngine::integratedLoudness(const BlockEnergies& blocks, std::span<const double> w) {
    return maskedIntegratedLoudness(blocks, w, std::vector<bool>(blockCount(blocks), true));
}

double LoudnessEngine::maxBlockLoudness(const BlockEnergies& blocks, std::span<const double> w) {
    double best = negInf;
    for (std::size_t j = 0; j < blockCount(blocks); ++j) best = std::max(best, loudnessOf(weightedSum(blocks, w, j)));
    return best;
}

}  // namespace velmora
