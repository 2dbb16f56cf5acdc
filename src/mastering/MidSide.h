#pragma once
// Stereo width: independent gains on the sum (Mid) and difference (Side) of a left/right pair.
#include "measurement/LoudnessEngine.h"

namespace velmora {

// Gains within ±0.01 dB on both sides leave the stage out.
inline constexpr double midSideGateDB = 0.01;

// In place on channels 0 (left) and 1 (right), in double precision per frame. Only a buffer
// of exactly two channels is touched; any other count, or both gains within the gate, leaves
// it unchanged. Does not allocate.
void applyMidSide(Channels& channels, double midGainDB, double sideGainDB) noexcept;
// The same over n frames of a left/right pair given by pointers.
void applyMidSide(float* left, float* right, std::size_t n, double midGainDB, double sideGainDB) noexcept;

}  // namespace velmora
