// Dialogue-gated measurement: the speech-band energy detector (kept to compare detectors), its
// hangover, and the gating of loudness blocks by detected speech.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "measurement/LoudnessEngine.h"
#include "measurement/Signals.h"
#include "measurement/SpeechDetector.h"
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

// Syllables of three speech-band partials, 200 ms on and 100 ms off in 2.1 s phrases with
// 1.5 s pauses.
double syllableSample(double fs, std::size_t n) {
    const double inPhrase = std::fmod(double(n) / fs, 3.6), inSyllable = std::fmod(inPhrase, 0.3);
    if (inPhrase >= 2.1 || inSyllable >= 0.2) return 0.0;
    return std::sin(std::numbers::pi * inSyllable / 0.2) *
           (0.12 * sineSample(450.0, fs, n) + 0.08 * sineSample(1300.0, fs, n) + 0.04 * sineSample(2600.0, fs, n));
}

TEST(MeasureDialogue, SpeechOverMusicIsMeasured) {
    // Speech over a continuous low "music" bed.
    std::vector<float> x(framesFor(30.0, fs48));
    for (std::size_t n = 0; n < x.size(); ++n)
        x[n] = float(syllableSample(fs48, n) + 0.03 * sineSample(55.0, fs48, n) + 0.02 * sineSample(82.5, fs48, n));
    const auto d = LoudnessEngine::measureDialogue(stereoBoth(x), stereo, fs48, {}, EnergyVAD{});
    const auto r = LoudnessEngine::measure(stereoBoth(x), stereo, fs48);
    ASSERT_TRUE(d.programmeLUFS.has_value());
    EXPECT_NEAR(*d.programmeLUFS, r.integratedLUFS, 0.01);
    EXPECT_TRUE(std::isfinite(d.integratedLUFS));
    EXPECT_NEAR(d.truePeakDB, r.truePeakDB, 0.01);
}

// A steady pad on E1 and A1, so far under 300 Hz that what leaks into the speech band stays
// some 6 dB under the detector's -60 dB floor.
double padSample(double fs, std::size_t n) { return 0.0125 * (sineSample(41.2, fs, n) + sineSample(55.0, fs, n)); }

// Bright music: hi-hats struck four times a second (100 ms decay) over the pad. The hi-hats have
// no energy under 9 kHz, so any speech-band energy they bring can only come from folding at 16 kHz.
std::vector<float> brightMusic(double seconds, double fs) {
    const std::size_t length = framesFor(seconds, fs);
    // Strikes go onto the noise before the band-pass, so their onsets spread nothing outside it.
    PinkishNoise noise(7, fs);
    std::vector<double> struck(length);
    for (std::size_t n = 0; n < length; ++n)
        struck[n] = noise.next() * std::exp(-std::fmod(double(n) / fs, 0.25) / 0.1);
    // 11-20 kHz as the difference of two Blackman-windowed sincs, each with a 2 kHz transition
    // that leaves 9 kHz and below some 74 dB down at any rate.
    const std::size_t taps = 2 * std::size_t(2.75 * fs / 2000.0) + 1, mid = taps / 2;
    std::vector<double> bandPass(taps, 0.0);
    for (const auto& [cutoffHz, sign] : {std::pair{20000.0, 1.0}, std::pair{11000.0, -1.0}}) {
        std::vector<double> lowPass(taps);
        double dc = 0.0;
        for (std::size_t k = 0; k < taps; ++k) {
            const double t = double(k) - double(mid), cycles = cutoffHz / fs;
            const double phase = 2.0 * std::numbers::pi * double(k) / double(taps - 1);
            const double sinc =
                k == mid ? 2.0 * cycles : std::sin(2.0 * std::numbers::pi * cycles * t) / (std::numbers::pi * t);
            dc += lowPass[k] = sinc * (0.42 - 0.5 * std::cos(phase) + 0.08 * std::cos(2.0 * phase));
        }
        for (std::size_t k = 0; k < taps; ++k) bandPass[k] += sign * lowPass[k] / dc;
    }
    std::vector<double> hats(length, 0.0);
    double energy = 0.0;
    for (std::size_t n = 0; n < length; ++n) {
        for (std::size_t k = 0; k < taps && k <= n; ++k) hats[n] += bandPass[k] * struck[n - k];
        energy += hats[n] * hats[n];
    }
    // -22 dBFS RMS whatever the rate: the noise's density per hertz falls as the rate rises.
    const double gain = 0.08 / std::sqrt(energy / double(length));
    std::vector<float> x(length);
    for (std::size_t n = 0; n < length; ++n) x[n] = float(gain * hats[n] + padSample(fs, n));
    return x;
}

TEST(MeasureDialogue, BrightMusicIsNotSpeechAtAnyRate) {
    const EnergyVAD energy;
    const SpeechDetector speech;
    for (const double fs : {44100.0, fs48, 96000.0}) {
        SCOPED_TRACE(fs);
        const auto x = brightMusic(8.0, fs);
        const auto flags = EnergyVAD{}.detectVoice(x, fs);
        EXPECT_EQ(std::count(flags.begin(), flags.end(), true), 0);
        for (const VoiceActivityDetector* detector : {static_cast<const VoiceActivityDetector*>(&energy),
                                                      static_cast<const VoiceActivityDetector*>(&speech)}) {
            const auto d = LoudnessEngine::measureDialogue(stereoBoth(x), stereo, fs, {}, *detector);
            EXPECT_EQ(d.integratedLUFS, minusInf);
            EXPECT_EQ(d.dialogueShare, 0.0);
        }
        const auto d = LoudnessEngine::measureDialogue(stereoBoth(x), stereo, fs);
        ASSERT_TRUE(d.programmeLUFS.has_value());
        EXPECT_GT(*d.programmeLUFS, -30.0) << "the hi-hats should carry the programme";
    }
}

TEST(MeasureDialogue, BrightMusicAfterSpeechLeavesTheDialogueLoudnessAlone) {
    // Two phrases, then 6 s of music: the last phrase's hangover ends over a second before the
    // hi-hats start, so no speech block reaches them.
    double speechAt48 = 0.0;
    for (const double fs : {fs48, 44100.0, 96000.0}) {
        SCOPED_TRACE(fs);
        const std::size_t speechLength = framesFor(7.2, fs);
        auto withMusic = brightMusic(13.2, fs);
        std::vector<float> speechOnly(withMusic.size());
        for (std::size_t n = 0; n < speechOnly.size(); ++n) {
            speechOnly[n] = float((n < speechLength ? syllableSample(fs, n) : 0.0) + padSample(fs, n));
            if (n < speechLength) withMusic[n] = speechOnly[n];
        }
        const auto d = LoudnessEngine::measureDialogue(stereoBoth(withMusic), stereo, fs, {}, EnergyVAD{});
        const auto reference = LoudnessEngine::measureDialogue(stereoBoth(speechOnly), stereo, fs, {}, EnergyVAD{});
        ASSERT_TRUE(std::isfinite(reference.integratedLUFS));
        EXPECT_NEAR(d.integratedLUFS, reference.integratedLUFS, 0.05);
        ASSERT_TRUE(d.programmeLUFS && reference.programmeLUFS);
        EXPECT_GT(*d.programmeLUFS, reference.integratedLUFS + 1.0) << "the hi-hats should be louder than the speech";
        // The decisions, and so the reading, do not depend on the input rate.
        if (fs == fs48) speechAt48 = reference.integratedLUFS;
        EXPECT_NEAR(reference.integratedLUFS, speechAt48, 0.1);
    }
}

TEST(MeasureDialogue, SteadyTonesAndSilenceAreNotSpeech) {
    // A steady in-band tone fools the energy detector, not the speech detector.
    const auto tone = stereoBoth(sine(1000, -20.0, framesFor(10.0, fs48), fs48));
    const auto d = LoudnessEngine::measureDialogue(tone, stereo, fs48);
    EXPECT_EQ(d.integratedLUFS, minusInf);
    ASSERT_TRUE(d.programmeLUFS.has_value());
    EXPECT_NEAR(*d.programmeLUFS, -20.0, 0.05);
    EXPECT_TRUE(std::isfinite(LoudnessEngine::measureDialogue(tone, stereo, fs48, {}, EnergyVAD{}).integratedLUFS));
    // One decision per 30 ms whatever the rate, none of them speech in silence.
    for (const double fs : {8000.0, 16000.0, 22050.0, 44100.0, fs48, 96000.0}) {
        const auto silent = SpeechDetector{}.detect(silence(framesFor(3.0, fs)), fs);
        EXPECT_NEAR(double(silent.size()), 100.0, 1.0) << fs;
        EXPECT_EQ(std::count(silent.begin(), silent.end(), true), 0) << fs;
    }
    EXPECT_TRUE(SpeechDetector{}.detect({}, fs48).empty());
}

TEST(MeasureDialogue, NothingVoicedHasNoDialogueLoudness) {
    // -65 dBFS reads -65 LUFS, over the absolute gate, yet every frame is under the detector's floor.
    const auto d = LoudnessEngine::measureDialogue(stereoBoth(sine(1000, -65.0, framesFor(10.0, fs48), fs48)), stereo,
                                                   fs48, {}, EnergyVAD{});
    EXPECT_EQ(d.integratedLUFS, minusInf);
    ASSERT_TRUE(d.programmeLUFS.has_value());
    EXPECT_NEAR(*d.programmeLUFS, -65.0, 0.05);
}

}  // namespace
}  // namespace velmora
