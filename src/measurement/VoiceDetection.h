#pragma once
// The interface of speech detectors for the dialogue-gated measurement (one decision per 30 ms
// frame), the fold-down they listen to and the mapping of their frames onto loudness blocks.
// The measurement's detector is SpeechDetector; the energy detector on the speech band below
// takes any sound in that band for speech, and stays to compare detectors on the same material.
#include <span>
#include <vector>

namespace velmora {

class VoiceActivityDetector {
public:
    virtual ~VoiceActivityDetector() = default;
    // One flag per 30 ms frame, true for voice.
    virtual std::vector<bool> detect(std::span<const float> mono, double sampleRate) const = 0;
};

struct EnergyVAD final : VoiceActivityDetector {
    double preferredSampleRate = 16000.0;  // Hz
    double voiceThresholdDB = -36.0;       // relative to the loudest frame

    static constexpr int hangoverFrames = 13;  // 390 ms

    std::vector<bool> detect(std::span<const float> mono, double sampleRate) const override {
        return detectVoice(mono, sampleRate);
    }
    // Allocates a copy at preferredSampleRate, low-passed before any rate change so that
    // nothing above its Nyquist folds into the speech band. Empty when the rate converter
    // cannot be made, which reads as no speech.
    std::vector<bool> detectVoice(std::span<const float> mono, double sampleRate) const;
};

// Fold-down fed to the detector: channels weighing more than 0.01, each scaled by w/k.
std::vector<float> monoForDetection(const std::vector<std::vector<float>>& channels, std::span<const double> weights);

std::vector<bool> applyHangover(std::vector<bool> flags, int hangoverFrames);

// Speech flag of each 400 ms block (hop 100 ms) from the 30 ms frame decisions.
std::vector<bool> speechBlockFlags(const std::vector<bool>& frames, std::size_t blockCount);

}  // namespace velmora
