#include "audio/Resample.h"

#include <soxr.h>

#include <algorithm>
#include <memory>

namespace velmora {

std::vector<float> resample(std::span<const float> samples, double sourceRate, double targetRate,
                            ResampleQuality quality) {
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t recipe = soxr_quality_spec(quality == ResampleQuality::low ? SOXR_LQ : SOXR_VHQ, 0);
    // One thread: measurements already run side by side on few cores.
    const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    soxr_error_t error = nullptr;
    const std::unique_ptr<soxr, decltype(&soxr_delete)> converter(
        soxr_create(sourceRate, targetRate, 1, &error, &io, &recipe, &runtime), &soxr_delete);
    if (!converter || error) return {};

    const auto length = std::size_t(targetRate / sourceRate * double(samples.size()));
    std::vector<float> out(length, 0.0f);
    // soxr queues what it is offered: slices keep that copy small.
    constexpr std::size_t slice = std::size_t{1} << 16;
    std::size_t consumed = 0, produced = 0;
    while (produced < length) {
        const bool flushing = consumed == samples.size();
        const std::size_t offered = std::min(slice, samples.size() - consumed);
        std::size_t used = 0, made = 0;
        if (soxr_process(converter.get(), flushing ? nullptr : samples.data() + consumed, offered, &used,
                         out.data() + produced, length - produced, &made))
            return {};
        consumed += used;
        produced += made;
        if (made == 0 && (flushing || used == 0)) break;
    }
    return out;
}

}  // namespace velmora

namespace velmora {

struct StreamingResampler::Converter {
    soxr_t handle;
};

StreamingResampler::StreamingResampler(double sourceRate, double targetRate) : ratio_(targetRate / sourceRate) {
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t recipe = soxr_quality_spec(SOXR_VHQ, 0);
    const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    soxr_error_t error = nullptr;
    soxr_t handle = soxr_create(sourceRate, targetRate, 1, &error, &io, &recipe, &runtime);
    if (handle && !error) converter_ = new Converter{handle};
    else if (handle) soxr_delete(handle);
}

StreamingResampler::~StreamingResampler() {
    if (converter_) soxr_delete(converter_->handle);
    delete converter_;
}

void StreamingResampler::reset() {
    if (converter_) soxr_clear(converter_->handle);
}

bool StreamingResampler::process(std::span<const float> in, std::vector<float>& out) {
    if (!converter_) return false;
    const bool flushing = in.empty();
    std::size_t consumed = 0;
    for (;;) {
        const std::size_t room = std::size_t(double(in.size() - consumed) * ratio_) + 4096;
        const std::size_t at = out.size();
        out.resize(at + room);
        std::size_t used = 0, made = 0;
        const soxr_error_t failed = soxr_process(converter_->handle, flushing ? nullptr : in.data() + consumed,
                                                 in.size() - consumed, &used, out.data() + at, room, &made);
        out.resize(at + made);
        if (failed) return false;
        consumed += used;
        // Done once the input is taken and the output buffer was not the limit.
        if (consumed == in.size() && made < room) return true;
        if (made == 0 && used == 0) return true;
    }
}

}  // namespace velmora
