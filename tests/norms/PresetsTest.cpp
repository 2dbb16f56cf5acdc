#include "norms/Presets.h"

#include <gtest/gtest.h>

#include <set>
#include <tuple>

using namespace velmora;

TEST(PresetTable, LabelOpensWithItsOwnTargetAndUnit) {
    // Catches a row whose numbers drifted from what the user reads in the menu.
    for (const Preset& p : presets())
        EXPECT_EQ(p.label.rfind(std::to_string(int(p.lufs)) + " " + std::string(rawValue(p.unit)) + " · ", 0), 0u)
            << p.label;
}

TEST(PresetTable, IdsAreDistinctRandomUuidsMadeOnce) {
    std::set<std::string> ids;
    for (const Preset& p : presets()) {
        ASSERT_EQ(p.id.size(), 36u);
        EXPECT_EQ(p.id.find_first_not_of("0123456789abcdef-"), std::string::npos) << p.id;
        // dashes at 8, 13, 18, 23; version 4; variant 8 to b
        EXPECT_EQ((std::string{p.id[8], p.id[13], p.id[14], p.id[18], p.id[23]}), "--4--") << p.id;
        EXPECT_TRUE(p.id[19] == '8' || p.id[19] == '9' || p.id[19] == 'a' || p.id[19] == 'b') << p.id;
        ids.insert(p.id);
    }
    EXPECT_EQ(ids.size(), presets().size());
    EXPECT_EQ(presets()[4].id, presetAt(4).id);
}

TEST(PresetTable, StaleIndexClampsAndGroupsStayInside) {
    EXPECT_EQ(&presetAt(-7), &presets().front());
    EXPECT_EQ(&presetAt(1000), &presets().back());
    EXPECT_EQ(broadcastGroup().title, "Broadcast TV");
    EXPECT_EQ(broadcastGroup().indices, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(streamingGroup().title, "Streaming musical");
    EXPECT_EQ(streamingGroup().indices, (std::vector<int>{10, 11, 12, 13, 14, 15, 16, 17, 18, 19}));
}

TEST(PresetGating, AutoFollowsTheNormAndAChoiceByHandSurvivesOnlyWhenRecommended) {
    const Preset& cinema = presetAt(8);
    EXPECT_EQ(effectiveGatingMode(GatingMode::autoMode, cinema), GatingMode::dialog);
    EXPECT_EQ(effectiveGatingMode(GatingMode::global, cinema), GatingMode::global);
    const NormSelection s = applyPreset(cinema, GatingMode::dialog);
    EXPECT_EQ(std::make_tuple(s.target, s.ceiling, s.displayUnit, s.gatingMode),
              std::make_tuple(-27.0, -2.0, LoudnessUnit::lkfs, GatingMode::dialog));
    EXPECT_EQ(applyPreset(cinema, GatingMode::ebuR128).gatingMode, GatingMode::autoMode);
    EXPECT_EQ(applyPreset(cinema, GatingMode::autoMode).gatingMode, GatingMode::autoMode);
}

TEST(PresetTag, EveryNormGetsItsOwnNamedTag) {
    // A shorter name listed before a longer one containing it would give two norms the same tag,
    // and their exported reports would overwrite each other.
    std::set<std::string> tags;
    for (int i = 0; i < int(presets().size()); ++i) {
        EXPECT_NE(presetTag(i), std::string("p") + std::to_string(i));
        tags.insert(presetTag(i));
    }
    EXPECT_EQ(tags.size(), presets().size());
    EXPECT_EQ(presetTag(8) + presetTag(9) + presetTag(11) + presetTag(20), "NetflixRT017ApplePodLoud");
    EXPECT_EQ(presetTag(21), "preset21");
    EXPECT_EQ(presetTag(-1), "p-1");
}
