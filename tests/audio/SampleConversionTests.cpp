#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "audio/SampleConversion.h"

namespace velmora::detail {
namespace {

// Lays `values` out over 1, 2 and 3 channels, each channel shifted by one so that a misplaced
// channel shows, and checks interleaved and planar conversion against `expected`.
template <typename T>
void expectConversion(SampleType type, const std::vector<T>& values, const std::vector<float>& expected) {
    constexpr std::size_t frames = 37;  // odd, so vectorised loops run their tails too
    for (std::size_t channels = 1; channels <= 3; ++channels) {
        std::vector<T> interleaved(frames * channels);
        std::vector<std::vector<T>> planes(channels, std::vector<T>(frames));
        std::vector<std::vector<float>> want(channels, std::vector<float>(frames)), packed = want, planar = want;
        std::vector<float*> packedOut, planarOut;
        std::vector<const std::uint8_t*> planeIn;
        for (std::size_t c = 0; c < channels; ++c) {
            for (std::size_t i = 0; i < frames; ++i) {
                interleaved[i * channels + c] = planes[c][i] = values[(i + c) % values.size()];
                want[c][i] = expected[(i + c) % values.size()];
            }
            packedOut.push_back(packed[c].data());
            planarOut.push_back(planar[c].data());
            planeIn.push_back(reinterpret_cast<const std::uint8_t*>(planes[c].data()));
        }
        interleavedToFloat(type, interleaved.data(), frames, channels, packedOut.data());
        planarToFloat(type, planeIn.data(), frames, channels, planarOut.data());
        EXPECT_EQ(packed, want) << channels << " channels, interleaved";
        EXPECT_EQ(planar, want) << channels << " channels, planar";
    }
}

TEST(SampleConversion, IntegersPutFullScaleNegativeOnMinusOne) {
    expectConversion<std::uint8_t>(SampleType::u8, {0, 128, 255, 64}, {-1, 0, 127.0f / 128, -0.5f});
    expectConversion<std::int16_t>(SampleType::s16, {-32768, 0, 32767, 16384}, {-1, 0, 32767.0f / 32768, 0.5f});
    // 24-bit samples arrive in the top of 32-bit words.
    expectConversion<std::int32_t>(SampleType::s32, {std::numeric_limits<std::int32_t>::min(), 0, 0x7fffff00},
                                   {-1, 0, 1.0f - 1.0f / (1 << 23)});
    expectConversion<std::int64_t>(SampleType::s64, {std::numeric_limits<std::int64_t>::min(), std::int64_t{1} << 62},
                                   {-1, 0.5f});
}

TEST(SampleConversion, FloatsPassThroughUnclipped) {
    expectConversion<float>(SampleType::f32, {-1, 0.25f, 1e-30f, 2}, {-1, 0.25f, 1e-30f, 2});  // overs are measured
    expectConversion<double>(SampleType::f64, {-0.5, 0.125, 1.5}, {-0.5f, 0.125f, 1.5f});
}

TEST(SampleConversion, FiniteCheckFindsBadSamplesAnywhere) {
    std::vector<float> samples(37, std::numeric_limits<float>::max());
    samples[4] = std::numeric_limits<float>::denorm_min();
    EXPECT_TRUE(allFinite(samples.data(), samples.size()));
    for (float bad : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                      -std::numeric_limits<float>::infinity()})
        for (std::size_t at : {std::size_t(0), samples.size() - 1}) {
            auto copy = samples;
            copy[at] = bad;
            EXPECT_FALSE(allFinite(copy.data(), copy.size())) << bad << " at " << at;
        }
}

}  // namespace
}  // namespace velmora::detail
