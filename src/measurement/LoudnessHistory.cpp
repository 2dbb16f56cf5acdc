#include "measurement/LoudnessHistory.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace velmora {

namespace {
constexpr double negInf = -std::numeric_limits<double>::infinity();

double weightOf(std::span<const double> w, std::size_t i) { return i < w.size() ? w[i] : 1.0; }

std::vector<double> weightedSums(const BlockEnergies& blocks, std::span<const double> w) {
    std::vector<double> out(blocks.empty() ? 0 : blocks.front().size(), 0.0);
    for (std::size_t c = 0; c < blocks.size(); ++c) {
        const double weight = weightOf(w, c);
        if (weight == 0.0) continue;
        for (std::size_t j = 0; j < out.size(); ++j) out[j] += weight * blocks[c][j];
    }
    return out;
}

double loudnessOf(double sum) { return sum > 0.0 ? LoudnessEngine::loudnessOffset + 10.0 * std::log10(sum) : negInf; }

// Sums of block energies by loudness, in bins of 0.01 LU from the absolute gate up, so the
// relative gate of the blocks so far is a suffix sum (a Fenwick tree: log n per block and per
// reading rather than a pass over every block at every point).
class GateHistogram {
public:
    static constexpr double binLU = 0.01;
    static constexpr std::size_t bins = 10000;  // -70 … +30 LUFS

    void add(double loudness, double energy) {
        ++countAll_;
        sumAll_ += energy;
        for (std::size_t i = bin(loudness) + 1; i <= bins; i += i & (~i + 1)) energy_[i] += energy, count_[i] += 1;
    }
    // Integrated loudness of the blocks added so far.
    double integrated() const {
        if (countAll_ == 0) return negInf;
        const double gate = loudnessOf(sumAll_ / double(countAll_)) - LoudnessEngine::relativeGateLU;
        const std::size_t from = gate <= LoudnessEngine::absoluteGateLUFS ? 0 : bin(gate);
        const double energy = sumAll_ - prefixEnergy(from);
        const double count = double(countAll_) - prefixCount(from);
        return count > 0.5 ? loudnessOf(energy / count) : negInf;
    }

private:
    static std::size_t bin(double loudness) {
        const double b = std::floor((loudness - LoudnessEngine::absoluteGateLUFS) / binLU);
        return std::size_t(std::clamp(b, 0.0, double(bins - 1)));
    }
    double prefixEnergy(std::size_t n) const {
        double s = 0.0;
        for (std::size_t i = n; i > 0; i -= i & (~i + 1)) s += energy_[i];
        return s;
    }
    double prefixCount(std::size_t n) const {
        double s = 0.0;
        for (std::size_t i = n; i > 0; i -= i & (~i + 1)) s += count_[i];
        return s;
    }
    std::vector<double> energy_ = std::vector<double>(bins + 1, 0.0);
    std::vector<double> count_ = std::vector<double>(bins + 1, 0.0);
    double sumAll_ = 0.0;
    std::size_t countAll_ = 0;
};
}  // namespace

LoudnessHistory loudnessHistory(const BlockEnergies& momentaryBlocks, const BlockEnergies& shortTermBlocks,
                                std::span<const double> w, std::size_t frames, double fs) {
    LoudnessHistory h;
    if (!(fs > 0) || momentaryBlocks.empty()) return h;
    const std::size_t hop = LoudnessEngine::hopFrames(fs);
    const std::size_t momentaryLag = LoudnessEngine::momentaryBlockFrames(fs) / hop;
    const std::size_t shortTermLag = LoudnessEngine::shortTermBlockFrames(fs) / hop;
    const std::size_t points = frames / hop + 1;
    const auto m = weightedSums(momentaryBlocks, w);
    const auto s = weightedSums(shortTermBlocks, w);
    h.momentary.assign(points, float(negInf));
    h.shortTerm.assign(points, float(negInf));
    h.integrated.assign(points, float(negInf));
    GateHistogram gate;
    for (std::size_t k = 0; k < points; ++k) {
        // Block j ends at j · hop + its length, which is the instant k · hop for j = k − lag.
        if (k >= momentaryLag && k - momentaryLag < m.size()) {
            const double l = loudnessOf(m[k - momentaryLag]);
            h.momentary[k] = float(l);
            if (l >= LoudnessEngine::absoluteGateLUFS) gate.add(l, m[k - momentaryLag]);
        }
        if (k >= shortTermLag && k - shortTermLag < s.size()) h.shortTerm[k] = float(loudnessOf(s[k - shortTermLag]));
        h.integrated[k] = float(gate.integrated());
    }
    return h;
}

std::vector<double> channelContributions(const BlockEnergies& blocks, std::span<const double> w) {
    std::vector<double> out(blocks.size(), negInf);
    const auto sums = weightedSums(blocks, w);
    // The programme's two gates, as the integrated loudness applies them.
    double absSum = 0.0;
    std::size_t absCount = 0;
    for (double z : sums)
        if (loudnessOf(z) >= LoudnessEngine::absoluteGateLUFS) absSum += z, ++absCount;
    if (absCount == 0) return out;
    const double gate = loudnessOf(absSum / double(absCount)) - LoudnessEngine::relativeGateLU;
    std::vector<double> channelSum(blocks.size(), 0.0);
    std::size_t kept = 0;
    for (std::size_t j = 0; j < sums.size(); ++j) {
        const double l = loudnessOf(sums[j]);
        if (l < LoudnessEngine::absoluteGateLUFS || l < gate) continue;
        ++kept;
        for (std::size_t c = 0; c < blocks.size(); ++c) channelSum[c] += blocks[c][j];
    }
    if (kept == 0) return out;
    for (std::size_t c = 0; c < blocks.size(); ++c) out[c] = loudnessOf(weightOf(w, c) * channelSum[c] / double(kept));
    return out;
}

}  // namespace velmora
