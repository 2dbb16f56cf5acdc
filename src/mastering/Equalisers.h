#pragma once
// The two equalisers of the chain: which sections each builds from the settings, and their run
// over every channel.
#include <span>
#include <vector>

#include "mastering/MasterParams.h"
#include "measurement/Biquad.h"
#include "measurement/LoudnessEngine.h"

namespace velmora {

// A band whose gain is within ±0.05 dB is left out of a list.
inline constexpr double eqBandGateDB = 0.05;

// Empty unless eqOn: high-pass (hpfOn), low shelf, peak 1, peak 2, high shelf. Allocates.
std::vector<Biquad> buildFiveBandEQ(const MasterParams& params, double fs);
// Empty unless teqOn: low shelf, mid peak, high shelf. Allocates.
std::vector<Biquad> buildTonalEQ(const MasterParams& params, double fs);

// What the real-time chain and the response graph run: the five bands, then the tonal bands
// whenever their gain counts, whatever eqOn and teqOn say (the caller decides whether the
// cascade runs at all). The first `preCompressor` sections come before the bus compressor.
// Allocates.
struct LiveCascade {
    std::vector<Biquad> sections;
    std::size_t preCompressor = 0;
};
LiveCascade buildLiveCascade(const MasterParams& params, double fs);

// Every section in list order on every channel (LFE included), each from zero state; one task
// per channel. The output equals running applyBiquad section after section. An empty list
// starts nothing and leaves the buffer untouched. Allocates only the worker threads.
void applyEQ(Channels& channels, const std::vector<Biquad>& sections);

}  // namespace velmora
