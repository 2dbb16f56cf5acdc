#pragma once
// The speech detector behind dialogue-gated loudness: the features of SpeechFeatures judged by
// a small neural network (one hidden layer) whose weights tools/train_speech_detector.py
// learns from labelled mixes of real recordings and writes into SpeechModelWeights.cpp.
// It tells speech, alone or over a music or effects bed, from music, effects, ambience, noise
// and silence, one decision per 30 ms frame.
#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "audio/StreamResampler.h"
#include "measurement/SpeechFeatures.h"
#include "measurement/VoiceDetection.h"

namespace velmora {

struct SpeechModelWeights {
    static constexpr std::size_t inputs = SpeechFeatures::count;
    static constexpr std::size_t hidden = 24;
    std::array<float, inputs> mean, scale;  // standardisation: (x − mean) · scale
    std::array<float, hidden * inputs> hiddenWeights;  // row per hidden unit
    std::array<float, hidden> hiddenBias, outputWeights;
    float outputBias;
};
extern const SpeechModelWeights speechModelWeights;

// Probability (0 … 1) that the frame summarised by `features` is speech. Never allocates.
float speechProbability(const SpeechModelWeights& model, const float* features) noexcept;

// The detector fed piece by piece at the file's rate, as it decodes. It keeps one probability per
// 30 ms frame (480 kB an hour) and never the programme.
class SpeechStream {
public:
    // Allocates the rate converter, the features and room for the decisions of `expectedFrames`
    // input frames (more are still taken).
    void prepare(double sampleRate, std::size_t expectedFrames);
    // Mono samples at the rate given to prepare(); any count. Allocates nothing but a rare
    // growth of the decisions past the expected length.
    void feed(std::span<const float> mono);
    // The decisions, from the judgements of every frame; call once, after the last feed.
    void finish();
    const std::vector<bool>& frames() const { return frames_; }

    static constexpr std::size_t sliceSamples = 4096;
    // Frames each side of the mean probability that decides a frame (210 ms in all).
    static constexpr std::size_t smoothingHalf = 3;
    // The mean probability from which a frame is speech. Under one half: with the spread below
    // it balances missed speech over loud beds against effects taken for speech.
    static constexpr float speechThreshold = 0.35f;
    // How far a decision of speech spreads to the frames on each side (90 ms).
    static constexpr std::size_t spreadFrames = 3;

private:
    static constexpr float silent = -1.0f;  // the judgement of a silent stretch
    void judge(std::span<const float> samples16k);

    std::unique_ptr<StreamResampler> resampler_;
    std::unique_ptr<SpeechFeatures> features_;
    std::vector<float> probability_;  // per 30 ms frame: 0 … 1, or `silent`
    std::vector<bool> frames_;
};

struct SpeechDetector final : VoiceActivityDetector {
    std::vector<bool> detect(std::span<const float> mono, double sampleRate) const override;
};

}  // namespace velmora
