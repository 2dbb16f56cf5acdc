// The loudness and sample peak of one window, as the meter shows under a cursor.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "measurement/LoudnessEngine.h"
#include "measurement/Signals.h"

namespace velmora {
namespace {

using namespace signals;

constexpr double fs48 = 48000.0;
constexpr double minusInf = -std::numeric_limits<double>::infinity();
const std::vector<double> mono{1.0};

const Channels& steadyTone() {
    static const Channels ch{sine(997, -20.0, framesFor(2.0, fs48), fs48)};
    return ch;
}

TEST(WindowedLoudness, ShorterThan50msMeasuresNothing) {
    const auto [lufs, peak] = LoudnessEngine::windowedLoudness(steadyTone(), mono, 48000, 2399, fs48);
    EXPECT_EQ(lufs, minusInf);
    EXPECT_EQ(peak, minusInf);
    const auto [lufs0, peak0] = LoudnessEngine::windowedLoudness(steadyTone(), mono, 48000, 0, fs48);
    EXPECT_EQ(lufs0, minusInf);
    EXPECT_EQ(peak0, minusInf);
}

TEST(WindowedLoudness, Exactly50msMeasures) {
    const auto [lufs, peak] = LoudnessEngine::windowedLoudness(steadyTone(), mono, 48000, 2400, fs48);
    EXPECT_TRUE(std::isfinite(lufs));
    EXPECT_TRUE(std::isfinite(peak));
}

TEST(WindowedLoudness, MomentaryWindowInsideSteadyTone) {
    // The filters start from zero state at some point before the window; allow 0.1 for that.
    for (std::size_t end : {std::size_t(19200), std::size_t(48000), std::size_t(96000)}) {
        const auto [lufs, peak] = LoudnessEngine::windowedLoudness(steadyTone(), mono, end, 19200, fs48);
        EXPECT_NEAR(lufs, toneLoudness997(-20.0), 0.1) << "ending at " << end;
        EXPECT_NEAR(peak, -20.0, 0.01);
    }
}

TEST(WindowedLoudness, SilentWindowAfterTone) {
    auto x = sine(997, -20.0, framesFor(1.0, fs48), fs48);
    append(x, silence(framesFor(1.0, fs48)));
    const auto [lufs, peak] = LoudnessEngine::windowedLoudness(Channels{x}, mono, 96000, 19200, fs48);
    // Only the K-weighting's decay tail can reach into the window.
    EXPECT_LT(lufs, -70.0);
    EXPECT_LT(peak, -200.0);
}

TEST(WindowedLoudness, WeightsApply) {
    const auto& tone = steadyTone()[0];
    const Channels ch{std::vector<float>(tone.size(), 0.0f), tone};
    const auto [lufs, peak] =
        LoudnessEngine::windowedLoudness(ch, std::vector<double>{1.0, 1.41}, 96000, 19200, fs48);
    EXPECT_NEAR(lufs, toneLoudness997(-20.0, 1.41), 0.1);
    EXPECT_NEAR(peak, -20.0, 0.01);
}

}  // namespace
}  // namespace velmora
