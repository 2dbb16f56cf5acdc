#pragma once
// What the linked dynamics stages share: the loudest channel per frame, and one gain curve
// multiplied into every channel so the image never shifts.
#include <cstddef>
#include <memory>
#include <span>

#include "measurement/LoudnessEngine.h"

namespace velmora::linked {

// Frames per detector chunk: 32 KB of doubles that stay in cache between the vectorised
// passes and the sequential one.
inline constexpr std::size_t chunkFrames = 4096;

// out[j] = max(floor, max over channels |x[begin + j]|) for j < n. Does not allocate.
void framePeaks(const Channels& channels, std::size_t begin, std::size_t n, double floor, double* out) noexcept;
// The same over n frames from each pointer.
void framePeaks(std::span<const float* const> channels, std::size_t n, double floor, double* out) noexcept;

// A gain curve of one float per frame, left uninitialised: every stage writes all of it, and
// zeroing a whole file's worth first would cost a pass over memory.
inline std::unique_ptr<float[]> newCurve(std::size_t frames) { return std::make_unique_for_overwrite<float[]>(frames); }

// Every channel multiplied sample by sample by gain[] (float multiply), one task per channel.
// Allocates only the worker threads.
void applyCurve(Channels& channels, const float* gain);

// Every sample multiplied by one gain, one task per channel.
void applyScalar(Channels& channels, float gain);

inline std::size_t frameCount(const Channels& channels) { return channels.empty() ? 0 : channels.front().size(); }

}  // namespace velmora::linked
