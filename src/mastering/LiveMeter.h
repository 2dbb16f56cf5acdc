#pragma once
// The light loudness meter of live mastering: momentary, short-term and integrated loudness of
// what is being played, and its sample peak, from the K-weighting of the offline measurement but
// ungated and averaged block by block, so the render thread pays two sections per channel per
// frame and no logarithm.
//
//   LiveMeter meter;
//   meter.init(48000);                       // main thread, before the stream starts
//   meter.process(left, right, frames);      // render thread, once per block
//   LiveMeter::Readings now = meter.stats(); // main thread, whenever it redraws
#include <cstddef>
#include <cstdint>

#include "mastering/TripleBuffer.h"
#include "measurement/Kernels.h"

namespace velmora {

class LiveMeter {
public:
    // Negative infinity where nothing has been measured yet.
    struct Readings {
        double momentary;   // LUFS, about 0.4 s
        double shortTerm;   // LUFS, about 3 s
        double integrated;  // LUFS, ungated mean of everything played since init()
        double peakDB;      // dBFS, largest sample since init(); never decays
    };

    // [main thread, no render running] Designs the K-weighting for `sampleRate` (Hz) and empties
    // the memories and statistics. Does not allocate.
    void init(double sampleRate);

    // [render thread] Adds `n` frames of the signal sent to the output; nothing when n is 0.
    // Never allocates, blocks or throws.
    void process(const float* left, const float* right, std::size_t n) noexcept;

    // [main thread; one reader at a time] The latest block's statistics as readings.
    Readings stats();

private:
    // The running statistics; owned by the render thread, published whole after each block.
    struct Stats {
        double msEMA_M = 0;          // momentary mean square, exponential average (0.4 s)
        double msEMA_S = 0;          // short-term mean square, exponential average (3 s)
        double msSumI = 0;           // sum of the weighted energy of every frame
        std::int64_t nSamplesI = 0;  // frames summed into msSumI
        double peakLin = 0;          // largest |sample| of either channel, linear
    };

    double sampleRate_ = 48000;  // Hz
    KWeightingFilter filter_{};
    kernels::KWeightState left_, right_;
    Stats running_;
    TripleBuffer<Stats> published_;
};

}  // namespace velmora
