#pragma once
// Supporting data of an analysis: per-channel energies with the C/LFE swap test, a waveform
// overview and a display spectrum. All from the unfiltered decoded channels.
#include <optional>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/tx.h>
}

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

// The display spectrum's real FFT of 4096 points under its Hann window. Construction allocates.
class SpectrumTransform {
public:
    static constexpr std::size_t frameSize = 4096;
    SpectrumTransform();
    ~SpectrumTransform();
    SpectrumTransform(const SpectrumTransform&) = delete;
    SpectrumTransform& operator=(const SpectrumTransform&) = delete;
    // Windows `frame` (frameSize + 2 floats, changed in place) and adds the magnitudes of its
    // frameSize / 2 bins to `magnitude`. Does not allocate.
    void add(float* frame, double* magnitude) noexcept;

private:
    AVTXContext* ctx_ = nullptr;
    av_tx_fn fft_ = nullptr;
    std::vector<AVComplexFloat> bins_;
};

// How many spectrum frames a programme of L frames gives and how far apart they start: spread
// evenly over the whole, at most 120, none under 4096 frames.
struct SpectrumFrames {
    std::size_t count = 0, hop = 0;
};
SpectrumFrames spectrumFrames(std::size_t L);
// The bands of summed bin magnitudes over `frames` frames (frameSize / 2 sums).
std::vector<float> spectrumBands(std::vector<double> magnitudeSums, std::size_t frames, int bandCount, double fs,
                                 double lowestHz = 20.0, double highestHz = 20000.0);

}  // namespace velmora
