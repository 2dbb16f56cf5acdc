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
