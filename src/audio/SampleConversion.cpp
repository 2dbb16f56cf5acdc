#include "audio/SampleConversion.h"

#include <cstdint>
#include <cstring>

namespace velmora::detail {

namespace {

// Integer scales are powers of two so that full-scale negative values land exactly on -1.0.
inline float toFloat(std::uint8_t v) { return (float(v) - 128.0f) * (1.0f / 128.0f); }
inline float toFloat(std::int16_t v) { return float(v) * (1.0f / 32768.0f); }
inline float toFloat(std::int32_t v) { return float(v) * (1.0f / 2147483648.0f); }
inline float toFloat(std::int64_t v) { return float(double(v) * (1.0 / 9223372036854775808.0)); }
inline float toFloat(float v) { return v; }
inline float toFloat(double v) { return float(v); }

template <typename T>
void deinterleave(const T* __restrict src, std::size_t frames, std::size_t channels, float* const* dst) {
    // Mono and stereo cover nearly every file; fixed strides let the compiler vectorise them.
    if (channels == 1) {
        float* __restrict d = dst[0];
        for (std::size_t i = 0; i < frames; ++i) d[i] = toFloat(src[i]);
        return;
    }
    if (channels == 2) {
        float* __restrict l = dst[0];
        float* __restrict r = dst[1];
        for (std::size_t i = 0; i < frames; ++i) {
            l[i] = toFloat(src[2 * i]);
            r[i] = toFloat(src[2 * i + 1]);
        }
        return;
    }
    // One pass per channel: a decoded frame is small enough to stay in cache across passes.
    for (std::size_t c = 0; c < channels; ++c) {
        float* __restrict d = dst[c];
        const T* s = src + c;
        for (std::size_t i = 0; i < frames; ++i) d[i] = toFloat(s[i * channels]);
    }
}

template <typename T>
void convertPlanes(const std::uint8_t* const* planes, std::size_t frames, std::size_t channels,
                   float* const* dst) {
    for (std::size_t c = 0; c < channels; ++c) {
        const T* __restrict s = reinterpret_cast<const T*>(planes[c]);
        float* __restrict d = dst[c];
        for (std::size_t i = 0; i < frames; ++i) d[i] = toFloat(s[i]);
    }
}

}  // namespace

void interleavedToFloat(SampleType type, const void* source, std::size_t frames, std::size_t channels,
                        float* const* dst) {
    switch (type) {
    case SampleType::u8: return deinterleave(static_cast<const std::uint8_t*>(source), frames, channels, dst);
    case SampleType::s16: return deinterleave(static_cast<const std::int16_t*>(source), frames, channels, dst);
    case SampleType::s32: return deinterleave(static_cast<const std::int32_t*>(source), frames, channels, dst);
    case SampleType::s64: return deinterleave(static_cast<const std::int64_t*>(source), frames, channels, dst);
    case SampleType::f32: return deinterleave(static_cast<const float*>(source), frames, channels, dst);
    case SampleType::f64: return deinterleave(static_cast<const double*>(source), frames, channels, dst);
    }
}

void planarToFloat(SampleType type, const std::uint8_t* const* planes, std::size_t frames, std::size_t channels,
                   float* const* dst) {
    switch (type) {
    case SampleType::u8: return convertPlanes<std::uint8_t>(planes, frames, channels, dst);
    case SampleType::s16: return convertPlanes<std::int16_t>(planes, frames, channels, dst);
    case SampleType::s32: return convertPlanes<std::int32_t>(planes, frames, channels, dst);
    case SampleType::s64: return convertPlanes<std::int64_t>(planes, frames, channels, dst);
    case SampleType::f32: return convertPlanes<float>(planes, frames, channels, dst);
    case SampleType::f64: return convertPlanes<double>(planes, frames, channels, dst);
    }
}

bool allFinite(const float* samples, std::size_t count) {
    // Looking at exponent bits instead of std::isfinite keeps the loop branch-free and vectorised.
    std::uint32_t nonFinite = 0;
    for (std::size_t i = 0; i < count; ++i) {
        std::uint32_t bits;
        std::memcpy(&bits, samples + i, sizeof bits);
        nonFinite |= std::uint32_t((bits & 0x7f800000u) == 0x7f800000u);
    }
    return nonFinite == 0;
}

}  // namespace velmora::detail
