#pragma once
// The offline chain over a programme that arrives block after block, every stage's memory
// carried from one block to the next: what renderMaster does to a whole buffer, for a
// programme read again from its source for each pass rather than held.
//
//   auto steps = planLRA(params, measureThroughChain);       // decided by earlier passes
//   StreamingChain chain(params, fs, channels, steps);
//   while (auto block = pass.next(n)) chain.process(block, n);
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "mastering/Compressors.h"
#include "mastering/LoudnessRangeReduction.h"
#include "mastering/MasterParams.h"
#include "measurement/Biquad.h"
#include "measurement/WorkerPool.h"

namespace velmora {

class StreamingChain {
public:
    // Allocates the filter memories, the dynamics stages' scratch and the worker threads.
    StreamingChain(const MasterParams& params, double fs, std::size_t channels, const std::vector<LraStep>& lraSteps);
    ~StreamingChain();

    // The next n frames of every channel, in place: Mid/Side (a pair only), the five-band
    // equaliser, the bus compressor, the tonal equaliser, then the loudness-range steps.
    // Equalisers run one channel per worker. Allocates nothing.
    void process(float* const* channels, std::size_t n);
    // The bus compressor's largest reduction so far, dB; 0 when it is off.
    double maxGR() const noexcept { return compressor_ ? compressor_->maxReductionDB() : 0.0; }

private:
    // Runs `sections` over every channel with their memories in `states` (sections × channels).
    void equalise(const std::vector<Biquad>& sections, std::vector<BiquadState>& states, float* const* channels,
                  std::size_t n);

    std::size_t channels_;
    bool midSide_ = false;
    double midGainDB_ = 0, sideGainDB_ = 0;
    std::vector<Biquad> fiveBand_, tonal_;
    std::vector<BiquadState> fiveBandStates_, tonalStates_;
    std::optional<StreamingCompressor> compressor_;
    struct Step {
        std::optional<StreamingEnvelope> envelope;
        float gain = 1.0f;
    };
    std::vector<Step> steps_;
    WorkerPool pool_;
};

}  // namespace velmora
