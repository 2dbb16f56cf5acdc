#include "norms/PADCheck.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

using namespace velmora;

static constexpr double infinity = std::numeric_limits<double>::infinity();

TEST(PADCheck, LongProgrammeJudgedOnIntegratedLoudness) {
    EXPECT_TRUE(checkPAD({}, -23.0, -3.0, -21.0, 120.0).isShort);
    const PADCheck c = checkPAD({}, -23.9, -3.0, -16.2, 120.01);
    ASSERT_EQ(c.lines.size(), 4u);
    EXPECT_EQ(c.lines[0].value + "|" + c.lines[1].value + "|" + c.lines[2].value, "-3.0 dBTP|-23.9 LUFS|—");
    EXPECT_EQ(padVerdict(c), "CONFORME RT-040");
    EXPECT_FALSE(checkPAD({}, -23.0, -2.9, -17.0, 600.0).lines[0].pass);
    EXPECT_FALSE(checkPAD({}, -21.9, -4.0, -17.0, 600.0).lines[1].pass);
    EXPECT_TRUE(checkPAD({}, -24.04, -4.0, -17.0, 600.0).lines[1].pass);
    EXPECT_FALSE(checkPAD(20.1, -23.0, -4.0, -17.0, 600.0).lines[2].pass);
    EXPECT_EQ(padVerdict(checkPAD(8.0, -23.0, -4.0, -15.9, 600.0)), "NON CONFORME");
}

TEST(PADCheck, ShortProgrammeJudgedOnShortTermLoudness) {
    const PADCheck ok = checkPAD({}, -23.0, -3.5, -19.96, 30.0);
    ASSERT_EQ(ok.lines.size(), 3u);
    EXPECT_EQ(ok.lines[1].target, "≤ -20,0 LUFS");
    EXPECT_TRUE(ok.conforms());
    EXPECT_FALSE(checkPAD({}, -23.0, -3.5, -19.9, 30.0).conforms());
    EXPECT_TRUE(checkPAD({}, -12.0, -3.5, -21.0, 30.0).conforms());  // integrated only informs
}

TEST(PADCheck, SilenceMeetsThePeakButNotTheLoudnessLines) {
    const PADCheck silent = checkPAD({}, -infinity, -infinity, -infinity, 600.0);
    EXPECT_EQ(silent.lines[0].value, "—");
    std::string passes;
    for (const auto& l : silent.lines) passes += l.pass ? '1' : '0';
    EXPECT_EQ(passes, "1010");
}

TEST(PADCheck, DialogueExcursionIsCheckedOnlyWhenSpeechWasFound) {
    const PADCheck without = checkPAD({}, -23.0, -4.0, -17.0, 600.0, dialogueExcursion(std::nullopt, -20.0));
    EXPECT_EQ(without.lines.size(), 4u);
    EXPECT_FALSE(without.checksDialogue);
    EXPECT_EQ(padNoteFor(without), padNote);

    const PADCheck within = checkPAD({}, -23.0, -4.0, -17.0, 600.0, dialogueExcursion(-29.96, -16.04));
    ASSERT_EQ(within.lines.size(), 5u);
    const auto& line = within.lines.back();
    EXPECT_EQ(line.label, "Excursion des dialogues");
    EXPECT_EQ(line.value, "-30.0 à -16.0 LUFS");
    EXPECT_EQ(line.target, "-30,0 à -16,0 LUFS");
    EXPECT_TRUE(line.pass);
    EXPECT_TRUE(within.conforms());
    EXPECT_EQ(padNoteFor(within), padNoteDialogueChecked);

    // Too quiet at one end or too loud at the other fails the line and the verdict, short or long.
    EXPECT_FALSE(checkPAD({}, -23.0, -4.0, -17.0, 600.0, DialogueExcursion{-31.0, -20.0}).conforms());
    EXPECT_FALSE(checkPAD({}, -23.0, -4.0, -21.0, 30.0, DialogueExcursion{-25.0, -15.5}).lines.back().pass);
    EXPECT_TRUE(checkPAD({}, -23.0, -4.0, -21.0, 30.0, DialogueExcursion{-25.0, -21.0}).lines.back().pass);
}
