#include <gtest/gtest.h>

#include "audio/StereoFold.h"

namespace velmora {
namespace {

// Channel i holds the single sample 2^i, so each side's sum tells which channels it took.
Channels numbered(std::size_t count) {
    Channels c;
    for (std::size_t i = 0; i < count; ++i) c.push_back({float(1u << i)});
    return c;
}

TEST(StereoFold, KeepsFrontsCentreAndFirstSurroundsAndDropsTheRest) {
    const float k = 0.707f;
    auto fold = [](std::size_t count) {
        const auto s = foldToStereo(numbered(count));
        return std::pair{s.left.at(0), s.right.at(0)};
    };
    EXPECT_EQ(fold(1), std::pair(1.0f, 1.0f));
    EXPECT_EQ(fold(2), std::pair(1.0f, 2.0f));
    EXPECT_EQ(fold(4), std::pair(1.0f + k * 4, 2.0f + k * 4));
    // Five channels: the fifth is on the left only.
    EXPECT_EQ(fold(5), std::pair(1.0f + k * 4 + k * 16, 2.0f + k * 4));
    // 5.1 and 7.1.4: no LFE, no rear surrounds, no heights.
    EXPECT_EQ(fold(6), std::pair(1.0f + k * 4 + k * 16, 2.0f + k * 4 + k * 32));
    EXPECT_EQ(fold(12), fold(6));
    EXPECT_TRUE(foldToStereo({}).left.empty());
}

}  // namespace
}  // namespace velmora
