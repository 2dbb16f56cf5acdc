#pragma once
// Feed-forward, hard-knee, peak-detecting compressors with linked detection: one gain curve
// from the loudest channel (LFE included) multiplies every channel.
#include <memory>

#include "mastering/MasterParams.h"
#include "measurement/LoudnessEngine.h"

namespace velmora {

// One compressor's gain computer: one-pole detector coefficients per frame, the threshold, and
// the dB of reduction per dB over it (1 − 1/ratio, hard knee).
struct CompressorSettings {
    double attack = 0, release = 0;  // one-pole coefficients of the dB detector, per frame
    double thresholdDB = 0;
    double slope = 0;
    double makeup = 1;  // linear
};

// Where a compressor's dB detector starts, and where a seek puts the live one back.
inline constexpr double detectorRestDB = -120.0;

// The bus compressor's settings at `fs` Hz from compThreshold, compRatio, compAttack, compRelease
// and compMakeup (compOn aside): what the offline chain and the live chain both run.
CompressorSettings busCompressorSettings(const MasterParams& params, double fs);

// The chain's bus compressor (compThreshold dBFS, compRatio n:1, compAttack and compRelease
// ms, compMakeup dB), in place. Returns the largest gain reduction applied in dB (positive),
// 0 when compOn is false, in which case the buffer is untouched. Allocates one float per frame
// for the gain curve, and the worker threads.
double busCompress(Channels& channels, double fs, const MasterParams& params);

// The fixed protection compressor (−12 dBFS, 2:1, 50 ms attack, 400 ms release, no make-up)
// that conformance puts before the limiter, in place. Allocates like busCompress.
void protectCompress(Channels& channels, double fs);

// A compressor over a programme that arrives block after block, its detector carried across
// blocks: the same samples as the whole-programme run.
class StreamingCompressor {
public:
    // Allocates its scratch.
    StreamingCompressor(const CompressorSettings& settings, std::size_t channels);
    ~StreamingCompressor();
    StreamingCompressor(StreamingCompressor&&) noexcept;
    // The next n frames of every channel, in place. Does not allocate.
    void process(float* const* channels, std::size_t n) noexcept;
    // The largest reduction so far, dB (positive), as busCompress reports it.
    double maxReductionDB() const noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

// The protection compressor, streaming: the same samples as protectCompress over the whole.
class StreamingProtection : public StreamingCompressor {
public:
    StreamingProtection(std::size_t channels, double fs);
};

}  // namespace velmora
