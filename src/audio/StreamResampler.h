#pragma once
// One mono stream converted to another rate piece by piece, for analyses that follow a file as
// it decodes. Same libsoxr recipe as resample(), so the output lines up with the input.
#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "audio/Resample.h"

struct soxr;

namespace velmora {

class StreamResampler {
public:
    // Allocates the converter and an output buffer for `maxInput` samples a call. With equal
    // rates (within 0.5 Hz) the samples pass through untouched.
    StreamResampler(double sourceRate, double targetRate, std::size_t maxInput, ResampleQuality quality);
    ~StreamResampler();
    StreamResampler(const StreamResampler&) = delete;
    StreamResampler& operator=(const StreamResampler&) = delete;

    bool valid() const { return passThrough_ || converter_ != nullptr; }
    // Converts at most maxInput samples; the result stays valid until the next call. Never allocates.
    std::span<const float> process(std::span<const float> input) noexcept;
    // What the converter still holds once the input has ended.
    std::span<const float> flush() noexcept;

private:
    bool passThrough_ = false;
    soxr* converter_ = nullptr;
    std::size_t maxInput_ = 0;
    std::vector<float> out_;
};

}  // namespace velmora
