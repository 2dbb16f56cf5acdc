#pragma once
// Supporting data of an analysis: per-channel energies with the C/LFE swap test, a waveform
// overview and a display spectrum. All from the unfiltered decoded channels.
#include <optional>
#include <string>
#include <vector>

#include "audio/ChannelLayout.h"
#include "measurement/LoudnessEngine.h"

namespace velmora {

struct ChannelEnergy {
    int index = 0;
    double totalMS = 0.0;  // mean square of the whole channel
    double subMS = 0.0;    // mean square after the 120 Hz low-pass
};

struct InversionWarning {
    int suspectedCenterIndex = 0;
    int suspectedLFEIndex = 0;
    double centerSubRatio = 0.0;
    double lfeSubRatio = 0.0;

    std::string text() const;
};

// The 120 Hz low-pass (Q 0.707) whose share of a channel's energy tells bass content.
Biquad subBassLowPass(double sampleRate);

// Channels in parallel.
std::vector<ChannelEnergy> channelEnergies(const std::vector<std::vector<float>>& channels, double sampleRate);
std::optional<InversionWarning> detectInversion(const std::vector<ChannelEnergy>& energies, ChannelOrder order);
std::vector<float> waveformPeaks(const std::vector<std::vector<float>>& channels, int pointCount = 1024);
std::vector<float> spectrum(const std::vector<std::vector<float>>& channels, int bandCount = 256,
                            double sampleRate = 48000.0, double lowestHz = 20.0, double highestHz = 20000.0);

}  // namespace velmora
