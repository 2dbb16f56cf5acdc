#pragma once
// Loudness over time: the momentary and short-term readings every 100 ms and the integrated
// loudness as it stands at each of those instants, for a whole programme. Two hours hold 72,000
// points per series, as floats.
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "measurement/LoudnessEngine.h"

namespace velmora {

struct LoudnessHistory {
    static constexpr double stepSeconds = 0.1;
    // Point k is the reading at k · 100 ms: the loudness (LUFS) of the 400 ms and 3 s windows
    // that end there and the integrated loudness of every 400 ms block ended by then. -inf
    // where the window is not yet full, silent, or no block has passed the gates.
    std::vector<float> momentary, shortTerm, integrated;

    std::size_t size() const { return momentary.size(); }
    bool empty() const { return momentary.empty(); }
    static double secondsAt(std::size_t k) { return double(k) * stepSeconds; }
};

// From the block energies of a measurement (hop 100 ms). Allocates the series and a histogram.
LoudnessHistory loudnessHistory(const BlockEnergies& momentaryBlocks, const BlockEnergies& shortTermBlocks,
                                std::span<const double> weights, std::size_t programmeFrames, double sampleRate);

// Every channel's weighted contribution to the integrated loudness (LUFS): its mean energy over
// the blocks the whole programme's gates keep, times its weight. -inf for a weightless channel
// (the LFE) or when no block passes.
std::vector<double> channelContributions(const BlockEnergies& momentaryBlocks, std::span<const double> weights);

}  // namespace velmora
