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

namespace velmora {

// One channel converted as it arrives, with the arithmetic of resample() at veryHigh quality:
// fed the same samples from the start, it gives the same output. Not for the real-time thread
// (it allocates as it grows). reset() starts a fresh signal without designing the filter again.
class StreamingResampler {
public:
    StreamingResampler(double sourceRate, double targetRate);
    ~StreamingResampler();
    StreamingResampler(const StreamingResampler&) = delete;
    StreamingResampler& operator=(const StreamingResampler&) = delete;

    bool valid() const { return converter_ != nullptr; }
    void reset();
    // Converts `in` (empty: flushes what the filter still holds, as at the end of the signal) and
    // appends what comes out to `out`. False when the converter failed.
    bool process(std::span<const float> in, std::vector<float>& out);

private:
    struct Converter;
    Converter* converter_ = nullptr;
    double ratio_;
};

}  // namespace velmora
