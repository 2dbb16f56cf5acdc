#include "audio/StreamResampler.h"

#include <soxr.h>

#include <cmath>

namespace velmora {

StreamResampler::StreamResampler(double sourceRate, double targetRate, std::size_t maxInput, ResampleQuality quality)
    : maxInput_(maxInput) {
    if (std::fabs(sourceRate - targetRate) < 0.5) {
        passThrough_ = true;
        return;
    }
    if (!(sourceRate > 0) || !(targetRate > 0)) return;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t recipe = soxr_quality_spec(quality == ResampleQuality::low ? SOXR_LQ : SOXR_VHQ, 0);
    const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    soxr_error_t error = nullptr;
    converter_ = soxr_create(sourceRate, targetRate, 1, &error, &io, &recipe, &runtime);
    if (error && converter_) {
        soxr_delete(converter_);
        converter_ = nullptr;
    }
    // Room for everything one call may release, the converter's own backlog included.
    out_.resize(std::size_t(std::ceil(double(maxInput) * targetRate / sourceRate)) + 4096);
}

StreamResampler::~StreamResampler() {
    if (converter_) soxr_delete(converter_);
}

std::span<const float> StreamResampler::process(std::span<const float> input) noexcept {
    if (passThrough_) return input;
    if (!converter_) return {};
    if (input.size() > maxInput_) input = input.first(maxInput_);
    std::size_t used = 0, made = 0;
    if (soxr_process(converter_, input.data(), input.size(), &used, out_.data(), out_.size(), &made)) return {};
    return {out_.data(), made};
}

std::span<const float> StreamResampler::flush() noexcept {
    if (passThrough_ || !converter_) return {};
    std::size_t used = 0, made = 0;
    if (soxr_process(converter_, nullptr, 0, &used, out_.data(), out_.size(), &made)) return {};
    return {out_.data(), made};
}

}  // namespace velmora
