// The K-weighting pre-filter: the published 48 kHz coefficients, and a response that does not
// move with the sample rate (a filter copied unchanged to 44.1 kHz misreads by tenths of a dB).
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <string>

#include "measurement/LoudnessEngine.h"

namespace velmora {
namespace {

TEST(KWeighting, PublishedCoefficientsAt48k) {
    const auto k = LoudnessEngine::kWeightingCoefficients(48000.0);
    const BiquadCoefficients shelf{1.53512485958697, -2.69169618940638, 1.19839281085285, -1.69065929318241,
                                   0.73248077421585};
    const BiquadCoefficients highPass{1.0, -2.0, 1.0, -1.99004745483398, 0.99007225036621};
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_NEAR(k.shelf[i], shelf[i], 1e-8) << "shelf coefficient " << i;
        EXPECT_NEAR(k.highPass[i], highPass[i], 1e-8) << "high-pass coefficient " << i;
    }
}

double responseDb(const KWeightingFilter& k, double f, double fs) {
    const std::complex<double> z1 = std::polar(1.0, -2.0 * std::numbers::pi * f / fs);
    const auto h = [&](const BiquadCoefficients& c) {
        return (c[0] + c[1] * z1 + c[2] * z1 * z1) / (1.0 + c[3] * z1 + c[4] * z1 * z1);
    };
    return 20.0 * std::log10(std::abs(h(k.shelf) * h(k.highPass)));
}

TEST(KWeighting, GainAt997HzCancelsTheLoudnessOffset) {
    const double g = responseDb(LoudnessEngine::kWeightingCoefficients(48000.0), 997.0, 48000.0);
    EXPECT_NEAR(g + LoudnessEngine::loudnessOffset, 0.0, 1e-3);
}

class KWeightingRate : public ::testing::TestWithParam<double> {};

TEST_P(KWeightingRate, ResponseMatches48k) {
    const double fs = GetParam();
    const auto ref = LoudnessEngine::kWeightingCoefficients(48000.0);
    const auto k = LoudnessEngine::kWeightingCoefficients(fs);
    for (double f : {20.0, 40.0, 100.0, 500.0, 997.0, 3000.0})
        EXPECT_NEAR(responseDb(k, f, fs), responseDb(ref, f, 48000.0), 0.05) << f << " Hz";
    EXPECT_NEAR(responseDb(k, 10000.0, fs), responseDb(ref, 10000.0, 48000.0), 0.1) << "10 kHz";
}

INSTANTIATE_TEST_SUITE_P(Rates, KWeightingRate, ::testing::Values(44100.0, 88200.0, 96000.0, 192000.0),
                         [](const auto& info) { return std::to_string(int(info.param)) + "Hz"; });

}  // namespace
}  // namespace velmora
