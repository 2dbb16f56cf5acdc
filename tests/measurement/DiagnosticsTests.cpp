// Supporting analyses: the centre/LFE swap test, the waveform overview and the display spectrum.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>
#include <vector>

#include "audio/ChannelLayout.h"
#include "measurement/Diagnostics.h"
#include "measurement/Signals.h"

namespace velmora {
namespace {

using namespace signals;

TEST(CentreLfeSwap, SwappedFileWarnsAndNeitherACorrectOneNorStereoDoes) {
    const auto low = sine(50, -20.0, framesFor(2.0, fs48), fs48), mid = sine(1000, -20.0, low.size(), fs48);
    for (const auto& [order, centre, lfe] : {std::tuple{ChannelOrder::smpte, 2, 3}, std::tuple{ChannelOrder::film, 1, 5}}) {
        // Only a 50 Hz tone where the order expects C, and 1 kHz where it expects the LFE.
        Channels ch(6, mid);
        ch[std::size_t(centre)] = low;
        const auto w = detectInversion(channelEnergies(ch, fs48), order);
        ASSERT_TRUE(w.has_value()) << rawValue(order);
        EXPECT_EQ(w->suspectedCenterIndex, centre);
        EXPECT_EQ(w->suspectedLFEIndex, lfe);
        EXPECT_GT(w->centerSubRatio, 0.9);  // 50 Hz passes a 120 Hz low-pass
        EXPECT_LT(w->lfeSubRatio, 0.05);    // 1 kHz does not
        std::swap(ch[std::size_t(centre)], ch[std::size_t(lfe)]);
        EXPECT_FALSE(detectInversion(channelEnergies(ch, fs48), order).has_value()) << rawValue(order);
        EXPECT_FALSE(detectInversion(channelEnergies({low, mid}, fs48), order).has_value());
        EXPECT_FALSE(detectInversion(channelEnergies({mid, low}, fs48), order).has_value());
    }
}

TEST(WaveformPeaks, ShortFileKeepsEverySample) {
    PinkishNoise noise(3, fs48);
    std::vector<float> x(1000);
    for (auto& v : x) v = float(noise.next());
    const auto p = waveformPeaks({x});
    ASSERT_EQ(p.size(), 1024u);
    for (std::size_t i = 0; i < 1024; ++i) EXPECT_EQ(p[i], i < 1000 ? std::abs(x[i]) : 0.0f) << "point " << i;
}

TEST(Spectrum, NeedsOneFullTransform) {
    EXPECT_TRUE(spectrum({std::vector<float>(4095, 0.1f)}).empty());
    const auto s = spectrum({sine(1000, -20.0, 4096, fs48)});
    ASSERT_EQ(s.size(), 256u);
    EXPECT_TRUE(std::all_of(s.begin(), s.end(), [](float v) { return v >= 0.0f && v <= 1.0f; }));
}

}  // namespace
}  // namespace velmora
