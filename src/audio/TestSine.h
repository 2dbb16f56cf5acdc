#pragma once
// The 1 kHz sine that checks the monitoring route: the live monitor plays it, the output layer
// hands it out beside the calibration noise. Bit-identical on every run.
#include "audio/PlanarAudio.h"

namespace velmora {

// Two channels of the same 2 s of 1 kHz at 48 kHz, peak 0.0707 (−23 dBFS).
Channels makeTestSine();
inline constexpr double testSineSampleRate = 48000.0;

}  // namespace velmora
