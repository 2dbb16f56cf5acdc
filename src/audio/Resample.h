#pragma once
// One channel held whole in memory, converted to another sample rate by libsoxr. soxr's filters
// are linear phase with their delay removed, so sample k of the result lines up with time
// k / targetRate of the input.
#include <span>
#include <vector>

namespace velmora {

enum class ResampleQuality {
    low,       // 16-bit precision, wide roll-off: analysis bands far below the new Nyquist
    veryHigh,  // 28-bit precision: what is listened to
};

// Allocates. Length truncate(L · targetRate / sourceRate); empty when the converter cannot be made.
std::vector<float> resample(std::span<const float> samples, double sourceRate, double targetRate,
                            ResampleQuality quality);

}  // namespace velmora
