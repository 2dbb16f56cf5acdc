#pragma once
// Turning decoded sample buffers into Velmora's float channels. Kept apart from FFmpeg so the
// arithmetic can be checked on hand-made buffers.
#include <cstddef>
#include <cstdint>

namespace velmora::detail {

enum class SampleType { u8, s16, s32, s64, f32, f64 };

// Writes frames [0, frameCount) of every channel to dst[c][0..frameCount).
void interleavedToFloat(SampleType, const void* source, std::size_t frameCount, std::size_t channelCount,
                        float* const* dst);
void planarToFloat(SampleType, const std::uint8_t* const* planes, std::size_t frameCount, std::size_t channelCount,
                   float* const* dst);

// False when any sample is NaN or infinite.
bool allFinite(const float* samples, std::size_t count);

}  // namespace velmora::detail
