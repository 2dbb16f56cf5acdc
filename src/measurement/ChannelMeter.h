#pragma once
// Streaming measurement of one channel: K-weighted energy per unit of a few milliseconds and
// the 4× true peak. Construction allocates; process() never does (below the unit capacity
// reserved for the expected length) and keeps no copy of the signal.
#include <cstddef>
#include <memory>
#include <vector>

#include "measurement/Kernels.h"
#include "measurement/PeakRuns.h"

namespace velmora {

class TruePeakMeter {
public:
    static constexpr std::size_t chunkFrames = 2048;
    TruePeakMeter() : buffer_(kernels::truePeakHistory + chunkFrames, 0.0) {}
    void process(const float* in, std::size_t n) noexcept;
    double peak() const;  // linear, at least 1e-12
    // The first frame (counted from the first processed) of the chunk of chunkFrames where the
    // true peak was first reached: where to listen for it, to within 43 ms at 48 kHz.
    std::size_t peakFrame() const { return peakFrame_; }
    // The largest |sample| (linear, 0 for silence) and the frame where it first occurs.
    double samplePeak() const { return samplePeak_; }
    std::size_t samplePeakFrame() const { return samplePeakFrame_; }

    // Also keep where the readings go over and where samples clip (allocates the recorder).
    void recordRuns(double sampleRate, int channel);
    const PeakRunRecorder* runs() const { return runs_.get(); }

private:
    std::vector<double> buffer_;  // eleven samples of history, then the current chunk
    std::vector<double> envelope_;  // the chunk's interpolated readings, when runs are recorded
    std::unique_ptr<PeakRunRecorder> runs_;
    double peak_ = 0.0;
    double samplePeak_ = 0.0;
    std::size_t processed_ = 0;  // frames so far
    std::size_t peakFrame_ = 0, samplePeakFrame_ = 0;
};

// The unit is the common divisor of the hop and both block lengths that is at most 10 ms, so
// blocks and the fine-grid windows are exact sums of whole units.
std::size_t energyUnitFrames(double sampleRate);

class ChannelMeter {
public:
    // With `energies`, also the channel's plain and sub-bass energies (the C/LFE swap test).
    ChannelMeter(double sampleRate, std::size_t expectedFrames, bool energies = false);
    void process(const float* in, std::size_t n) noexcept;

    const std::vector<double>& unitSums() const { return units_; }  // Σ y² per complete unit
    double truePeak() const { return truePeak_.peak(); }
    const TruePeakMeter& peaks() const { return truePeak_; }
    void recordRuns(int channel) { truePeak_.recordRuns(sampleRate_, channel); }
    std::size_t frames() const { return frames_; }
    double sumOfSquares() const { return plainSum_; }  // unfiltered
    double subBassSumOfSquares() const { return subSum_; }

private:
    double sampleRate_;
    KWeightingFilter filter_;
    kernels::KWeightState state_;
    TruePeakMeter truePeak_;
    std::size_t unitFrames_;
    std::size_t unitFill_ = 0;  // frames already in the open unit
    double unitSum_ = 0.0;
    std::vector<double> units_;
    std::size_t frames_ = 0;
    bool energies_;
    KWeightingFilter subBass_{};
    kernels::KWeightState subState_;
    double plainSum_ = 0.0, subSum_ = 0.0;
};

}  // namespace velmora
