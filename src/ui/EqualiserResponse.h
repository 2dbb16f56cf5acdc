#pragma once
// The five-band equaliser's response as the graph draws it. The sections come from
// buildLiveCascade, the very list the real-time chain runs before its compressor, so the curve
// shows what is heard and cannot drift from the filters.
#include <span>
#include <vector>

#include "mastering/MasterParams.h"
#include "measurement/Biquad.h"

namespace velmora {

// The rate a response is drawn for: the file's, or 48 kHz when there is none.
inline double responseRate(double sampleRateHz) { return sampleRateHz > 0 ? sampleRateHz : 48000.0; }

// High-pass when hpfOn, then each shelf and peak whose gain counts, at responseRate(fs).
// Allocates.
std::vector<Biquad> fiveBandSections(const MasterParams& params, double sampleRateHz);

// |H(e^jω)| of one section in dB at ω = 2π·f/fs. A section whose denominator vanishes there
// counts as 0 dB; a magnitude is floored at 1e-9 (-180 dB).
double sectionResponseDB(const Biquad& section, double omega);

// The sum over `sections` at `frequencyHz`, unclamped.
double cascadeResponseDB(std::span<const Biquad> sections, double frequencyHz, double sampleRateHz);

}  // namespace velmora
