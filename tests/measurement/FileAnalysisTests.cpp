// One pass over a real file: measuring while decoding, through the reused window or into the
// whole buffer, must give the figures of measuring the decoded buffer afterwards.
#include <gtest/gtest.h>

#include "Signals.h"
#include "measurement/FileAnalysis.h"
#include "support/TestSupport.h"

namespace velmora {
namespace {

using namespace signals;

void expectSameResult(const LoudnessResult& a, const LoudnessResult& b) {
    EXPECT_NEAR(a.integratedLUFS, b.integratedLUFS, 1e-9);
    ASSERT_EQ(a.loudnessRange.has_value(), b.loudnessRange.has_value());
    if (a.loudnessRange) {
        EXPECT_NEAR(*a.loudnessRange, *b.loudnessRange, 1e-9);
    }
    EXPECT_NEAR(a.momentaryMax, b.momentaryMax, 1e-9);
    EXPECT_NEAR(a.shortTermMax, b.shortTermMax, 1e-9);
    EXPECT_DOUBLE_EQ(a.truePeakDB, b.truePeakDB);
}

TEST(FileAnalysis, StreamedWindowAndWholeBufferAgreeWithTheEngine) {
    // 50 s at 48 kHz: the streaming window wraps twice.
    constexpr double fs = 48000;
    auto left = toneSequence(997, {{-30, 10}, {-20, 15}, {-35, 10}, {-12, 5}, {-26, 10}}, fs);
    auto right = toneSequence(440, {{-24, 25}, {-40, 25}}, fs);
    test::ScratchDir dir;
    test::writeFloatWav(dir / "programme.wav", {left, right}, int(fs));
    const auto path = (dir / "programme.wav").string();

    AnalysisSettings whole;
    whole.keepAudio = true;
    const auto kept = analyseFile(path, whole);
    const auto streamed = analyseFile(path, AnalysisSettings{});
    ASSERT_TRUE(kept && streamed);
    ASSERT_EQ(kept->audio.frameCount(), left.size());
    EXPECT_EQ(streamed->frameCount, left.size());
    EXPECT_EQ(streamed->audio.frameCount(), 0u) << "the streamed pass keeps no samples";
    EXPECT_EQ(streamed->channelCount, 2);

    const std::vector<double> w{1.0, 1.0};
    const auto reference = LoudnessEngine::measure({left, right}, w, fs);
    expectSameResult(kept->result, reference);
    expectSameResult(streamed->result, reference);
    EXPECT_EQ(streamed->infoLine(), "0:50 · stéréo · 48.0 kHz");
}

TEST(FileAnalysis, SwappedCentreAndLfeAreNoticedWhileStreaming) {
    constexpr double fs = 48000;
    const std::size_t n = framesFor(5.0, fs);
    Channels ch(6, std::vector<float>(n, 0.0f));
    ch[0] = sine(1000, -20, n, fs);
    ch[2] = sine(50, -20, n, fs);    // centre position carries sub-bass only
    ch[3] = sine(1000, -20, n, fs);  // LFE position carries a mid tone
    test::ScratchDir dir;
    test::writeFloatWav(dir / "six.wav", ch, int(fs));
    for (bool keep : {false, true}) {
        AnalysisSettings s;
        s.keepAudio = keep;
        const auto a = analyseFile((dir / "six.wav").string(), s);
        ASSERT_TRUE(a);
        ASSERT_TRUE(a->inversion.has_value()) << "keepAudio " << keep;
        EXPECT_EQ(a->inversion->suspectedCenterIndex, 2);
        EXPECT_EQ(a->inversion->suspectedLFEIndex, 3);
        EXPECT_GT(a->inversion->centerSubRatio, 0.95);
        EXPECT_LT(a->inversion->lfeSubRatio, 0.05);
    }
}

TEST(FileAnalysis, DialogueGatingAndUnreadableFiles) {
    constexpr double fs = 48000;
    test::ScratchDir dir;
    test::writeFloatWav(dir / "tone.wav", {sine(1000, -20, framesFor(6.0, fs), fs)}, int(fs));
    AnalysisSettings dialog;
    dialog.dialogueGating = true;
    const auto a = analyseFile((dir / "tone.wav").string(), dialog);
    ASSERT_TRUE(a);
    ASSERT_TRUE(a->result.programmeLUFS.has_value());
    EXPECT_NEAR(a->result.integratedLUFS, *a->result.programmeLUFS, 0.05) << "a steady in-band tone is all speech";

    const auto missing = analyseFile((dir / "missing.wav").string(), AnalysisSettings{});
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().code, LoudnessError::Code::corruptFile);
}

}  // namespace
}  // namespace velmora
