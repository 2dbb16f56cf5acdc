#include "measurement/OverviewMeter.h"

#include <algorithm>
#include <cmath>

namespace velmora {

namespace {

constexpr std::size_t N = SpectrumTransform::frameSize;

float largestMagnitude(const float* x, std::size_t n, float m) noexcept {
    // std::max keeps the running value for a NaN sample, as the whole-buffer overview does.
    for (std::size_t k = 0; k < n; ++k) m = std::max(m, std::fabs(x[k]));
    return m;
}

}  // namespace

OverviewMeter::OverviewMeter(std::size_t channels, double sampleRate, std::size_t frames)
    : channels_(channels),
      length_(frames),
      rate_(sampleRate),
      bucket_(std::size_t(pointCount) <= frames ? frames / std::size_t(pointCount) : 1),
      peaks_(channels > 0 && frames > 0 ? std::size_t(pointCount) : 0, 0.0f),
      spread_(channels > 0 ? spectrumFrames(frames) : SpectrumFrames{}),
      frame_(N + 2, 0.0f),
      magnitude_(N / 2, 0.0) {}

void OverviewMeter::process(const float* const* channels, std::size_t n) noexcept {
    const std::size_t from = fed_;
    fed_ += n;
    // Waveform: the buckets this block touches, each the largest |sample| over every channel.
    const std::size_t covered = std::min(length_, peaks_.size() * bucket_);
    for (std::size_t at = from; at < std::min(fed_, covered);) {
        const std::size_t point = at / bucket_;
        const std::size_t to = std::min({fed_, covered, (point + 1) * bucket_});
        float m = peaks_[point];
        for (std::size_t c = 0; c < channels_; ++c) m = largestMagnitude(channels[c] + (at - from), to - at, m);
        peaks_[point] = m;
        at = to;
    }
    // Spectrum: the frames never overlap (their hop is at least their length), so one is open
    // at a time; the channels are averaged into it in channel order, as the whole-buffer sum.
    const float perChannel = channels_ > 0 ? 1.0f / float(channels_) : 0.0f;
    for (std::size_t at = from; nextFrame_ < spread_.count && at < fed_;) {
        const std::size_t start = nextFrame_ * spread_.hop;
        if (at < start) {
            at = std::min(fed_, start);
            continue;
        }
        const std::size_t to = std::min(fed_, start + N);
        for (std::size_t c = 0; c < channels_; ++c) {
            const float* x = channels[c] + (at - from);
            float* f = frame_.data() + (at - start);
            for (std::size_t k = 0; k < to - at; ++k) f[k] += x[k] * perChannel;
        }
        at = to;
        if (to == start + N) {
            transform_.add(frame_.data(), magnitude_.data());
            std::fill(frame_.begin(), frame_.end(), 0.0f);
            ++framesDone_;
            ++nextFrame_;
        }
    }
}

std::vector<float> OverviewMeter::waveformPeaks() const { return peaks_; }

std::vector<float> OverviewMeter::spectrum() const {
    if (framesDone_ == 0 || framesDone_ != spread_.count) return {};
    return spectrumBands(magnitude_, framesDone_, bandCount, rate_);
}

}  // namespace velmora
