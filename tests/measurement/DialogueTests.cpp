// Dialogue-gated measurement: the speech-band energy detector, its hangover, and the gating of
// loudness blocks by detected speech.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

#include "measurement/LoudnessEngine.h"
#include "measurement/Signals.h"
#include "measurement/VoiceDetection.h"

namespace velmora {
namespace {

using namespace signals;

constexpr double fs16 = 16000.0;
constexpr double fs48 = 48000.0;
constexpr std::size_t frame16 = 480;  // 30 ms at 16 kHz
constexpr double minusInf = -std::numeric_limits<double>::infinity();
const std::vector<double> stereo{1.0, 1.0};

// ---------------------------------------------------------------- hangover

TEST(Hangover, SingleVoicedFrameHoldsFor390ms) {
    std::vector<bool> flags(40, false);
    flags[5] = true;
    const auto out = applyHangover(flags, EnergyVAD::hangoverFrames);
    ASSERT_EQ(out.size(), flags.size());
    EXPECT_EQ(std::count(out.begin(), out.end(), true), 14);
    for (std::size_t i = 0; i < out.size(); ++i) EXPECT_EQ(out[i], i >= 5 && i <= 18) << "frame " << i;
}

TEST(Hangover, HoldRestartsAtEachVoicedFrame) {
    std::vector<bool> flags(60, false);
    flags[2] = flags[10] = true;  // the second onset is inside the first hold
    const auto out = applyHangover(flags, 13);
    for (std::size_t i = 0; i < out.size(); ++i) EXPECT_EQ(out[i], i >= 2 && i <= 23) << "frame " << i;
}

TEST(Hangover, StopsAtTheEnd) {
    std::vector<bool> flags(10, false);
    flags[8] = true;
    const auto out = applyHangover(flags, 13);
    ASSERT_EQ(out.size(), 10u);
    EXPECT_EQ(std::count(out.begin(), out.end(), true), 2);
}

TEST(Hangover, ZeroHoldChangesNothing) {
    const std::vector<bool> flags{false, true, false, true, true, false};
    EXPECT_EQ(applyHangover(flags, 0), flags);
}

// ---------------------------------------------------------------- energy detector

// A 1 kHz tone (inside the 300–3400 Hz band) in whole 30 ms frames: 30 cycles per frame, so a
// steady frame's energy does not depend on where the cycle starts. A one-frame fade-in keeps
// the band-pass onset from making a frame louder than the steady tone.
std::vector<float> toneFrames(double dbfs, std::size_t frames, std::size_t startSample, bool fadeIn) {
    std::vector<float> x(frames * frame16);
    const double a = dbToAmplitude(dbfs);
    for (std::size_t n = 0; n < x.size(); ++n) {
        double g = a;
        if (fadeIn && n < frame16) g *= 0.5 - 0.5 * std::cos(std::numbers::pi * double(n) / double(frame16));
        x[n] = float(g * sineSample(1000.0, fs16, startSample + n));
    }
    return x;
}

// 20 loud frames, then 60 frames `belowDb` under them. Continuous phase across the step.
std::vector<float> loudThenQuiet(double belowDb) {
    auto x = toneFrames(-10.0, 20, 0, true);
    append(x, toneFrames(-10.0 - belowDb, 60, x.size(), false));
    return x;
}

TEST(EnergyVAD, Frame36dBBelowLoudestIsVoiced) {
    // Float storage makes "exactly 36" a coin toss at the 1e-6 dB level; 1e-3 dB inside is not.
    const auto flags = EnergyVAD{}.detectVoice(loudThenQuiet(35.999), fs16);
    ASSERT_EQ(flags.size(), 80u);
    for (std::size_t i = 2; i < 80; ++i) EXPECT_TRUE(flags[i]) << "frame " << i;
}

TEST(EnergyVAD, Frame36_1dBBelowLoudestIsNot) {
    const auto flags = EnergyVAD{}.detectVoice(loudThenQuiet(36.1), fs16);
    ASSERT_EQ(flags.size(), 80u);
    for (std::size_t i = 2; i < 20; ++i) EXPECT_TRUE(flags[i]) << "frame " << i;
    // 13 frames of hangover after the step, then two frames for the band-pass to settle.
    for (std::size_t i = 20 + 13 + 2; i < 80; ++i) EXPECT_FALSE(flags[i]) << "frame " << i;
}

TEST(EnergyVAD, ThresholdIsConfigurable) {
    EnergyVAD vad;
    vad.voiceThresholdDB = -20.0;
    const auto flags = vad.detectVoice(loudThenQuiet(25.0), fs16);
    ASSERT_EQ(flags.size(), 80u);
    for (std::size_t i = 40; i < 80; ++i) EXPECT_FALSE(flags[i]) << "frame " << i;
}

TEST(EnergyVAD, QuietProgrammeHasNoVoice) {
    // Loudest frame near -73 dB: under the -60 dB floor, so nothing is speech however steady.
    const auto flags = EnergyVAD{}.detectVoice(toneFrames(-70.0, 50, 0, false), fs16);
    ASSERT_EQ(flags.size(), 50u);
    EXPECT_EQ(std::count(flags.begin(), flags.end(), true), 0);
}

TEST(EnergyVAD, ModerateProgrammeHasVoice) {
    const auto flags = EnergyVAD{}.detectVoice(toneFrames(-45.0, 50, 0, false), fs16);
    ASSERT_EQ(flags.size(), 50u);
    for (std::size_t i = 2; i < 50; ++i) EXPECT_TRUE(flags[i]) << "frame " << i;
}

TEST(EnergyVAD, LoudHumDoesNotMaskSpeechBand) {
    // 40 Hz hum 40 dB over a later 1 kHz tone. Judged on full-band energy the tone would sit
    // under the -36 dB threshold; the speech band strips most of the hum and keeps the tone.
    const std::size_t frames = 100;
    std::vector<float> x(frames * frame16);
    for (std::size_t n = 0; n < x.size(); ++n) {
        const bool hum = n < 50 * frame16;
        x[n] = float(hum ? 0.5 * sineSample(40.0, fs16, n) : 0.005 * sineSample(1000.0, fs16, n));
    }
    const auto flags = EnergyVAD{}.detectVoice(x, fs16);
    ASSERT_EQ(flags.size(), frames);
    for (std::size_t i = 52; i < frames; ++i) EXPECT_TRUE(flags[i]) << "frame " << i;
}

TEST(EnergyVAD, FramesFollowTheRate) {
    // 3 s at 48 kHz is 100 frames of 30 ms whatever the rate the detector works at.
    const auto flags = EnergyVAD{}.detectVoice(sine(1000, -20, framesFor(3.0, fs48), fs48), fs48);
    EXPECT_NEAR(double(flags.size()), 100.0, 1.0);
}

// ---------------------------------------------------------------- fold-down

TEST(MonoForDetection, AveragesWeightedChannelsAndSkipsLfe) {
    const std::size_t n = 64;
    const std::vector<std::vector<float>> ch{std::vector<float>(n, 0.5f), std::vector<float>(n, 0.3f)};
    const auto m = monoForDetection(ch, stereo);
    ASSERT_EQ(m.size(), n);
    for (float v : m) EXPECT_NEAR(v, 0.4f, 1e-6f);

    // 5.1: LFE weighs 0 and is left out; five channels share the fold-down.
    std::vector<std::vector<float>> six(6, std::vector<float>(n, 0.0f));
    six[2] = std::vector<float>(n, 0.5f);  // C
    six[3] = std::vector<float>(n, 1.0f);  // LFE
    six[4] = std::vector<float>(n, 0.2f);  // Ls
    const auto m6 = monoForDetection(six, std::vector<double>{1, 1, 1, 0, 1.41, 1.41});
    ASSERT_EQ(m6.size(), n);
    for (float v : m6) EXPECT_NEAR(v, (0.5 + 1.41 * 0.2) / 5.0, 1e-6);
}

// ---------------------------------------------------------------- blocks from frames

// Block 2 spans 200–600 ms; the 30 ms frames that overlap it are 6 (180–210 ms) to 19
// (570–600 ms), fourteen of them.
std::vector<bool> framesVoicedIn(std::size_t first, std::size_t last, std::size_t total = 40) {
    std::vector<bool> f(total, false);
    for (std::size_t k = first; k <= last; ++k) f[k] = true;
    return f;
}

TEST(SpeechBlockFlags, HalfVoicedBlockIsSpeech) {
    const auto flags = speechBlockFlags(framesVoicedIn(6, 12), 5);  // 7 of 14
    ASSERT_EQ(flags.size(), 5u);
    EXPECT_TRUE(flags[2]);
}

TEST(SpeechBlockFlags, LessThanHalfIsNot) {
    const auto flags = speechBlockFlags(framesVoicedIn(6, 11), 5);  // 6 of 14
    ASSERT_EQ(flags.size(), 5u);
    EXPECT_FALSE(flags[2]);
}

TEST(SpeechBlockFlags, AllOrNothing) {
    const auto all = speechBlockFlags(std::vector<bool>(100, true), 27);
    EXPECT_EQ(std::count(all.begin(), all.end(), true), 27);
    const auto none = speechBlockFlags(std::vector<bool>(100, false), 27);
    EXPECT_EQ(std::count(none.begin(), none.end(), true), 0);
}

TEST(SpeechBlockFlags, BlocksPastTheLastFrameAreNotSpeech) {
    // Blocks from a longer analysis than the detector saw must not read past its frames.
    const auto flags = speechBlockFlags(std::vector<bool>(10, true), 40);
    ASSERT_EQ(flags.size(), 40u);
    EXPECT_TRUE(flags[0]);
    for (std::size_t j = 10; j < 40; ++j) EXPECT_FALSE(flags[j]) << "block " << j;
}

// ---------------------------------------------------------------- dialogue measurement

// Speech-like: syllables of three speech-band partials, 200 ms on and 100 ms off in 2.1 s
// phrases with 1.5 s pauses; under it a continuous low "music" bed.
Channels dialogueProgramme(double seconds) {
    const std::size_t frames = framesFor(seconds, fs48);
    std::vector<float> x(frames);
    for (std::size_t n = 0; n < frames; ++n) {
        const double t = double(n) / fs48;
        const double inPhrase = std::fmod(t, 3.6);
        const double inSyllable = std::fmod(inPhrase, 0.3);
        double speech = 0.0;
        if (inPhrase < 2.1 && inSyllable < 0.2) {
            const double env = std::sin(std::numbers::pi * inSyllable / 0.2);
            speech = env * (0.12 * sineSample(450.0, fs48, n) + 0.08 * sineSample(1300.0, fs48, n) +
                            0.04 * sineSample(2600.0, fs48, n));
        }
        const double music = 0.03 * sineSample(55.0, fs48, n) + 0.02 * sineSample(82.5, fs48, n);
        x[n] = float(speech + music);
    }
    return {x, x};
}

TEST(MeasureDialogue, SpeechOverMusicIsMeasured) {
    const auto ch = dialogueProgramme(30.0);
    const auto d = LoudnessEngine::measureDialogue(ch, stereo, fs48);
    ASSERT_TRUE(d.programmeLUFS.has_value());
    EXPECT_TRUE(std::isfinite(*d.programmeLUFS));
    EXPECT_TRUE(std::isfinite(d.integratedLUFS));

    // The programme figures are those of the ordinary measurement.
    const auto r = LoudnessEngine::measure(ch, stereo, fs48);
    EXPECT_NEAR(*d.programmeLUFS, r.integratedLUFS, 0.01);
    EXPECT_NEAR(d.truePeakDB, r.truePeakDB, 0.01);
    EXPECT_NEAR(d.momentaryMax, r.momentaryMax, 0.01);
    EXPECT_NEAR(d.shortTermMax, r.shortTermMax, 0.01);
}

TEST(MeasureDialogue, NothingVoicedHasNoDialogueLoudness) {
    // -65 dBFS reads -65 LUFS, over the absolute gate, yet every frame is under the detector's floor.
    const auto ch = stereoBoth(sine(1000, -65.0, framesFor(10.0, fs48), fs48));
    const auto d = LoudnessEngine::measureDialogue(ch, stereo, fs48);
    EXPECT_EQ(d.integratedLUFS, minusInf);
    ASSERT_TRUE(d.programmeLUFS.has_value());
    EXPECT_NEAR(*d.programmeLUFS, -65.0, 0.05);
}

TEST(MeasureDialogue, AllVoicedMatchesProgramme) {
    const auto ch = stereoBoth(sine(1000, -20.0, framesFor(10.0, fs48), fs48));
    const auto d = LoudnessEngine::measureDialogue(ch, stereo, fs48);
    ASSERT_TRUE(d.programmeLUFS.has_value());
    EXPECT_NEAR(d.integratedLUFS, *d.programmeLUFS, 0.01);
    EXPECT_NEAR(d.integratedLUFS, -20.0, 0.05);
}

TEST(MeasureDialogue, SilenceMeasuresNothing) {
    const auto d = LoudnessEngine::measureDialogue(stereoBoth(silence(framesFor(3.0, fs48))), stereo, fs48);
    EXPECT_EQ(d.integratedLUFS, minusInf);
    EXPECT_EQ(d.truePeakDB, -240.0);
}

}  // namespace
}  // namespace velmora
