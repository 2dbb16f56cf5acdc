#include "norms/Diagnosis.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <string>
#include <tuple>

using namespace velmora;

static constexpr double infinity = std::numeric_limits<double>::infinity();

static std::set<int> conforming(double integrated, double truePeak) {
    std::set<int> ids;
    for (const NormCheck& c : diagnose(presets(), integrated, truePeak))
        if (c.conform) ids.insert(c.id);
    return ids;
}

TEST(Diagnosis, TypicalDeliveriesMeetTheirOwnFamilyOfNorms) {
    // -23 sits on the edge of the 1 LU tolerance of the -24 norms: only the one with a -1 ceiling conforms.
    EXPECT_EQ(conforming(-23.0, -1.0), (std::set<int>{0, 2, 5}));
    EXPECT_EQ(conforming(-24.9, -2.5), (std::set<int>{3, 4, 5, 6, 7}));
    EXPECT_EQ(conforming(-14.05, -1.2), (std::set<int>{14, 15, 17, 18, 19}));
    const NormCheck pad = diagnose(presets(), -23.0, -1.0)[1];
    EXPECT_TRUE(pad.integratedOK && !pad.truePeakOK);
    EXPECT_EQ(std::make_tuple(pad.presetLabel, pad.ceilingDBTP), std::make_tuple(presets()[1].label, -3.0));

    const auto checks = diagnose(presets(), -24.9, -2.5);
    EXPECT_EQ(diagnosisSummary(checks), "Le fichier sans aucune retouche : 5 normes mondiales déjà respectées sur 21.");
    EXPECT_EQ(diagnosisBadge(checks), "5 / 21 ✓");
    EXPECT_EQ(deviationText(checks[0]) + deviationText(checks[8]), "-1.9 LU+2.1 LU");
    EXPECT_EQ(deviationText(diagnose(presets(), -infinity, -1.0)[0]), "—");
}

TEST(Diagnosis, ReadingsThatRoundOntoALimitPass) {
    const std::vector<Preset> table{{"", "x", -23.0, -1.0, LoudnessUnit::lufs, GatingMode::ebuR128, false, {}, {}, 0.2}};
    EXPECT_TRUE(diagnose(table, -23.25, -0.96)[0].conform);
    EXPECT_TRUE(diagnose(table, -22.75, -1.0)[0].conform);
    EXPECT_FALSE(diagnose(table, -23.26, -1.0)[0].integratedOK);
    EXPECT_FALSE(diagnose(table, -23.0, -0.94)[0].truePeakOK);
    EXPECT_TRUE(conforming(-23.0, infinity).empty());
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
}
