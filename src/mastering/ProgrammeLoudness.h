#pragma once
// The standard measurement (absolute and relative gating) reduced to what the chain decides
// on: integrated loudness and loudness range. Unlike LoudnessEngine::measure it skips the true
// peak and keeps no filtered copy, only per-channel energies of a few ms, so a refinement loop
// can measure a long master many times cheaply.
#include <optional>
#include <span>

#include "measurement/LoudnessEngine.h"

namespace velmora {

struct ProgrammeLoudness {
    double integratedLUFS;               // −∞ when nothing passes the gates
    std::optional<double> loudnessRange;  // LU; absent when there are too few blocks
};

// Channels filtered in parallel; a channel weighted 0 (LFE) is not filtered at all. Allocates
// the energy lists (one double per energy unit per channel) and the worker threads.
ProgrammeLoudness measureProgramme(const Channels& channels, double fs, std::span<const double> weights,
                                   bool withRange = true);

}  // namespace velmora
