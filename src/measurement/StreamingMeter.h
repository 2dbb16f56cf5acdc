#pragma once
// The whole standard measurement of a programme fed in pieces, so that measuring a long file
// can overlap its decoding. Channels are measured in parallel; nothing is copied.
//
//   LoudnessAnalyzer analyzer;
//   auto audio = readAudioFile(path, &analyzer);   // measures while decoding
//   auto result = analyzer.result(weights);
#include <atomic>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "audio/AudioFileReader.h"
#include "measurement/ChannelMeter.h"
#include "measurement/Diagnostics.h"
#include "measurement/LoudnessEngine.h"
#include "measurement/ProgrammeDetail.h"
#include "measurement/WorkerPool.h"

namespace velmora {

class LoudnessAnalyzer final : public DecodeListener {
public:
    // Without `keepSamples` a reader decodes through a small window (see DecodeListener).
    explicit LoudnessAnalyzer(ProgressFn progress = {}, bool keepSamples = true);
    // Channel energies for every channel count, not only 5.1; takes effect at the next prepare().
    void measureEnergiesAlways(bool on) { energiesAlways_ = on; }
    ~LoudnessAnalyzer() override;

    // Allocates one meter per channel and the worker threads.
    void prepare(std::size_t channelCount, double sampleRate, std::size_t expectedFrames);
    // Starts measuring the next `n` frames of every channel and returns at once; the samples
    // must stay in place until the next feed() or wait().
    void feed(const std::vector<const float*>& channels, std::size_t n);
    void wait();

    void started(const PlanarAudio& audio, std::size_t expectedFrames) override;
    void framesDecoded(const PlanarAudio& audio, std::size_t begin, std::size_t end) override;
    void quiesce() override { wait(); }
    bool keepsSamples() const override { return keepSamples_; }

    // Results, once everything fed has been waited for.
    std::size_t frames() const;
    double sampleRate() const { return sampleRate_; }
    BlockEnergies momentaryBlocks() const;
    BlockEnergies shortTermBlocks() const;
    // Loudest window of `windowFrames` whose start lies on the energy-unit grid.
    double fineMaximum(std::span<const double> weights, std::size_t windowFrames) const;
    // The same loudness and the first frame of that window; no frame when nothing was measured.
    std::pair<double, std::optional<std::size_t>> fineMaximumAt(std::span<const double> weights,
                                                                std::size_t windowFrames) const;
    double truePeakDB() const;
    // Plain and sub-bass energies, measured for 6-channel programmes (or always, when asked).
    std::vector<ChannelEnergy> channelEnergies() const;
    LoudnessResult result(std::span<const double> weights) const;
    // Short-term loudness every `stepSeconds`, for drawing (see LoudnessEngine::shortTermCurve).
    std::vector<double> shortTermCurve(std::span<const double> weights, double stepSeconds) const;
    // Loudness every 100 ms, where readings went over and samples clipped, and each channel's
    // figures (allocates; see ProgrammeDetail.h).
    ProgrammeDetail detail(std::span<const double> weights) const;

private:
    BlockEnergies blocks(std::size_t blockFrames) const;

    ProgressFn progress_;
    bool keepSamples_;
    bool energies_ = false;
    bool energiesAlways_ = false;
    double sampleRate_ = 0.0;
    std::size_t expectedFrames_ = 0;
    std::size_t fed_ = 0;
    std::size_t unitFrames_ = 1;
    std::vector<std::unique_ptr<ChannelMeter>> meters_;
    std::unique_ptr<WorkerPool> pool_;
    std::vector<const float*> pending_;
};

}  // namespace velmora
