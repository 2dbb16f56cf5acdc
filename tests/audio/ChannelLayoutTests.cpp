#include <gtest/gtest.h>

#include "audio/ChannelLayout.h"
#include "audio/PlanarAudio.h"

namespace velmora {
namespace {

constexpr double S = surroundWeight;

TEST(ChannelLayout, WeightsFollowDeclaredPositionsThenOrderThenLayout) {
    using namespace speaker;
    // FFmpeg hands 5.1 over in its own order whatever the codec stored: a declared file is
    // weighted by where its channels are, never by the order the user picked for bare files.
    const std::vector<std::uint64_t> declared51{frontLeft, frontRight, frontCenter, lowFrequency, sideLeft, sideRight};
    for (ChannelOrder order : allChannelOrders) {
        EXPECT_EQ(resolveChannelWeights(6, ChannelLayout::s51, order, declared51),
                  (std::vector<double>{1, 1, 1, 0, S, S}));
        EXPECT_EQ(fivePointOneOrder(order, declared51), ChannelOrder::smpte);
        EXPECT_EQ(fivePointOneOrder(order, {}), order);
    }
    EXPECT_EQ(fivePointOneOrder(ChannelOrder::smpte, {frontCenter, frontLeft, frontRight, backLeft, backRight, lowFrequency}),
              ChannelOrder::aac);
    // A six-channel file without an LFE has no centre/LFE pair to compare.
    EXPECT_EQ(fivePointOneOrder(ChannelOrder::smpte, {frontLeft, frontRight, frontCenter, backCenter, sideLeft, sideRight}),
              std::nullopt);

    EXPECT_EQ(resolveChannelWeights(6, ChannelLayout::stereo, ChannelOrder::film),
              (std::vector<double>{1, 1, 1, S, S, 0}));
    EXPECT_EQ(resolveChannelWeights(6, ChannelLayout::autoDetect, ChannelOrder::itu),
              (std::vector<double>{1, 1, S, S, 1, 0}));
    EXPECT_EQ(resolveChannelWeights(8, ChannelLayout::s512, ChannelOrder::smpte),
              (std::vector<double>{1, 1, 1, 0, S, S, 1, 1}));

    const std::vector<std::uint64_t> fiveOh{frontLeft, frontRight, frontCenter, backLeft, backRight};
    EXPECT_EQ(resolveChannelWeights(5, ChannelLayout::autoDetect, ChannelOrder::smpte, fiveOh),
              (std::vector<double>{1, 1, 1, S, S}));
    EXPECT_EQ(resolveChannelWeights(8, ChannelLayout::stereo, ChannelOrder::smpte,
                                    {frontLeft, frontRight, frontCenter, lowFrequency, sideLeft, sideRight,
                                     frontLeftOfCenter, lowFrequency2}),
              (std::vector<double>{1, 1, 1, 0, S, S, 1, 0}));
    // Positions that do not cover every channel cannot be trusted.
    EXPECT_EQ(resolveChannelWeights(8, ChannelLayout::autoDetect, ChannelOrder::smpte, fiveOh),
              defaultWeights(8));

    EXPECT_EQ(layoutMismatchWarning(ChannelLayout::stereo, 6),
              "⚠︎ Ce format attend 2 canaux ; le fichier en a 6. Mesure en Auto.");
    EXPECT_EQ(layoutMismatchWarning(ChannelLayout::s714, 12), std::nullopt);
    EXPECT_EQ(layoutMismatchWarning(ChannelLayout::autoDetect, 6), std::nullopt);
}

}  // namespace
}  // namespace velmora
