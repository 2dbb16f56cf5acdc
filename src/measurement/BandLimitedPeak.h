#pragma once
// The peak of the band-limited signal that a channel's samples stand for, as a converter
// would reconstruct it: a long, fine interpolation that reads within 0.05 dB of the real
// crest for content up to 0.9 × the Nyquist frequency. Meters differ in their interpolators
// (the 4× reading of the measurement can read a few tenths of a dB under such a crest), so a
// master whose ceiling must hold on any meter is checked with both readings.
//
// The fine interpolation costs far more per sample than the 4× reading, so it is evaluated
// only around the samples where the 4× reading comes at or above `watchFromLin`; elsewhere
// the signal is known to be far enough under the level of interest.
//
//   BandLimitedPeakMeter meter(fromDB(ceilingDB - 1.0));
//   meter.process(block, n);   // any block sizes, as the samples come
//   meter.finish();            // the crests after the last sample
//   double peak = meter.peak();
#include <cstddef>
#include <span>
#include <vector>

namespace velmora {

class BandLimitedPeakMeter {
public:
    // Allocates its history and work buffers. watchFromLin = 0 examines every sample.
    explicit BandLimitedPeakMeter(double watchFromLin = 0.0);
    // Never allocates.
    void process(const float* in, std::size_t n) noexcept;
    // The interpolated values after the last sample (the signal is silent after it). Once.
    void finish() noexcept;
    // Linear, at least 1e-12: the largest |sample| and |interpolated value| examined.
    double peak() const;

private:
    void run(std::size_t intervals) noexcept;
    void watch(const double* x, std::size_t intervals) noexcept;
    void examine(const double* x, std::size_t from, std::size_t to) noexcept;

    std::vector<double> history_;   // from the lead of the next interval to examine, as the samples come
    std::vector<double> envelope_;  // the 4× reading over one chunk
    std::vector<double> grid_;      // the fine points of a few dozen intervals
    double watchFrom_;
    double peak_ = 0.0;
    std::size_t held_ = 0;  // samples of history_ in use
    bool finished_ = false;
};

// The whole channel at once, every sample examined: for tests and one-off readings.
double bandLimitedPeak(std::span<const float> channel);

}  // namespace velmora
