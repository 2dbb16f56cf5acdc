#pragma once
#include <cstddef>
#include <vector>

#include "measurement/Diagnostics.h"

namespace velmora {

// The waveform overview and the display spectrum of a programme fed frame after frame, never
// held: the same figures as waveformPeaks and spectrum over the whole buffer. Its length must
// be known before the first frame, since the buckets and the spectrum's frames are spread
// over it.
//
//   OverviewMeter overview(channels, rate, frames);
//   overview.process(block, n);   // again and again, in order
//   auto peaks = overview.waveformPeaks();
class OverviewMeter {
public:
    static constexpr int pointCount = 1024, bandCount = 256;
    // Allocates.
    OverviewMeter(std::size_t channels, double sampleRate, std::size_t frames);
    // The next n frames of every channel. Does not allocate.
    void process(const float* const* channels, std::size_t n) noexcept;
    std::size_t frames() const { return fed_; }    // fed so far
    std::size_t length() const { return length_; }  // as announced
    std::vector<float> waveformPeaks() const;
    std::vector<float> spectrum() const;

private:
    std::size_t channels_, length_, fed_ = 0;
    double rate_;
    std::size_t bucket_;
    std::vector<float> peaks_;
    SpectrumFrames spread_;
    std::size_t nextFrame_ = 0;  // spectrum frame being filled
    std::vector<float> frame_;
    std::vector<double> magnitude_;
    std::size_t framesDone_ = 0;
    SpectrumTransform transform_;
};

}  // namespace velmora
