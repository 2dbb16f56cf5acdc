// Dialogue-gated measurement: the speech-band energy detector, its hangover, and the gating of
// loudness blocks by detected speech.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "measurement/LoudnessEngine.h"
#include "measurement/Signals.h"
#include "measurement/VoiceDetection.h"

namespace velmora {
namespace {

using namespace signals;

constexpr double fs16 = 16000.0;
constexpr std::size_t frame16 = 480;  // 30 ms at 16 kHz

TEST(Hangover, SingleVoicedFrameHoldsFor390ms) {
    std::vector<bool> flags(40, false), expected(40, false);
    flags[5] = true;
    std::fill(expected.begin() + 5, expected.begin() + 19, true);  // 14 frames
    EXPECT_EQ(applyHangover(flags, EnergyVAD::hangoverFrames), expected);
}

// 20 loud frames of 1 kHz (inside the 300–3400 Hz band), then 60 frames `belowDb` under them:
// 30 cycles per frame, so a steady frame's energy does not depend on where the cycle starts.
std::vector<float> loudThenQuiet(double belowDb) {
    auto x = toneSequence(1000, {{-10, 0.6}, {-10 - belowDb, 1.8}}, fs16);
    // A one-frame fade-in keeps the band-pass onset from making a frame louder than the steady tone.
    for (std::size_t n = 0; n < frame16; ++n) x[n] *= float(0.5 - 0.5 * std::cos(std::numbers::pi * double(n) / frame16));
    return x;
}

TEST(EnergyVAD, VoicedDownTo36dBUnderTheLoudestFrameAndNeverUnderMinus60dB) {
    // Float storage makes "exactly 36" a coin toss at the 1e-6 dB level; 1e-3 dB inside is not.
    const auto inside = EnergyVAD{}.detectVoice(loudThenQuiet(35.999), fs16);
    ASSERT_EQ(inside.size(), 80u);
    for (std::size_t i = 2; i < 80; ++i) EXPECT_TRUE(inside[i]) << "frame " << i;

    const auto under = EnergyVAD{}.detectVoice(loudThenQuiet(36.1), fs16);
    ASSERT_EQ(under.size(), 80u);
    for (std::size_t i = 2; i < 20; ++i) EXPECT_TRUE(under[i]) << "frame " << i;
    // 13 frames of hangover after the step, then two frames for the band-pass to settle.
    for (std::size_t i = 20 + 13 + 2; i < 80; ++i) EXPECT_FALSE(under[i]) << "frame " << i;

    // Loudest frame near -73 dB: under the -60 dB floor, so nothing is speech however steady.
    const auto flags = EnergyVAD{}.detectVoice(toneSequence(1000, {{-70, 1.5}}, fs16), fs16);
    ASSERT_EQ(flags.size(), 50u);
    EXPECT_EQ(std::count(flags.begin(), flags.end(), true), 0);
}

TEST(SpeechBlockFlags, ExactlyHalfVoicedBlockIsSpeech) {
    // Block 2 spans 200–600 ms; the 30 ms frames that overlap it are 6 (180–210 ms) to 19
    // (570–600 ms), fourteen of them.
    std::vector<bool> frames(40, false);
    std::fill(frames.begin() + 6, frames.begin() + 13, true);
    EXPECT_TRUE(speechBlockFlags(frames, 5).at(2));
    frames[12] = false;
    EXPECT_FALSE(speechBlockFlags(frames, 5).at(2));
}

TEST(MeasureDialogue, SpeechOverMusicIsMeasured) {
    // Syllables of three speech-band partials, 200 ms on and 100 ms off in 2.1 s phrases with
    // 1.5 s pauses, over a continuous low "music" bed.
    std::vector<float> x(framesFor(30.0, fs48));
    for (std::size_t n = 0; n < x.size(); ++n) {
        const double inPhrase = std::fmod(double(n) / fs48, 3.6), inSyllable = std::fmod(inPhrase, 0.3);
        double speech = 0.0;
        if (inPhrase < 2.1 && inSyllable < 0.2)
            speech = std::sin(std::numbers::pi * inSyllable / 0.2) *
                     (0.12 * sineSample(450.0, fs48, n) + 0.08 * sineSample(1300.0, fs48, n) +
                      0.04 * sineSample(2600.0, fs48, n));
        x[n] = float(speech + 0.03 * sineSample(55.0, fs48, n) + 0.02 * sineSample(82.5, fs48, n));
    }
    const auto d = LoudnessEngine::measureDialogue(stereoBoth(x), stereo, fs48);
    const auto r = LoudnessEngine::measure(stereoBoth(x), stereo, fs48);
    ASSERT_TRUE(d.programmeLUFS.has_value());
    EXPECT_NEAR(*d.programmeLUFS, r.integratedLUFS, 0.01);
    EXPECT_TRUE(std::isfinite(d.integratedLUFS));
    EXPECT_NEAR(d.truePeakDB, r.truePeakDB, 0.01);
}

TEST(MeasureDialogue, NothingVoicedHasNoDialogueLoudness) {
    // -65 dBFS reads -65 LUFS, over the absolute gate, yet every frame is under the detector's floor.
    const auto d = LoudnessEngine::measureDialogue(stereoBoth(sine(1000, -65.0, framesFor(10.0, fs48), fs48)), stereo, fs48);
    EXPECT_EQ(d.integratedLUFS, minusInf);
    ASSERT_TRUE(d.programmeLUFS.has_value());
    EXPECT_NEAR(*d.programmeLUFS, -65.0, 0.05);
}

}  // namespace
}  // namespace velmora
