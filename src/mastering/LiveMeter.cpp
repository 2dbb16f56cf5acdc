#include "mastering/LiveMeter.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace velmora {

namespace {

constexpr double momentarySeconds = 0.4, shortTermSeconds = 3.0;

double loudnessLUFS(double meanSquare) {
    return meanSquare > 0 ? 10.0 * std::log10(meanSquare) + LoudnessEngine::loudnessOffset
                          : -std::numeric_limits<double>::infinity();
}

}  // namespace

void LiveMeter::init(double sampleRate) {
    sampleRate_ = sampleRate;
    filter_ = LoudnessEngine::kWeightingCoefficients(sampleRate);
    left_ = right_ = {};
    running_ = {};
    published_.reset(running_);
}

void LiveMeter::process(const float* left, const float* right, std::size_t n) noexcept {
    if (n == 0) return;
    // Both channels weighted 1.0; each sum is of the weighted samples as the offline measurement
    // stores them (rounded to float).
    const double sum = kernels::kWeight(filter_, left_, left, nullptr, n) +
                       kernels::kWeight(filter_, right_, right, nullptr, n);
    float peak = 0.0f;
    for (std::size_t i = 0; i < n; ++i) peak = std::max(peak, std::max(std::fabs(left[i]), std::fabs(right[i])));

    // Averaged per block: the time constants hold whatever the block size, and a block longer
    // than 0.4 s replaces the momentary value outright.
    const double blockMS = sum / double(n), dt = double(n) / sampleRate_;
    const double aM = std::min(dt / momentarySeconds, 1.0), aS = std::min(dt / shortTermSeconds, 1.0);
    Stats& s = running_;
    s.msEMA_M = aM * blockMS + (1 - aM) * s.msEMA_M;
    s.msEMA_S = aS * blockMS + (1 - aS) * s.msEMA_S;
    s.msSumI += sum;
    s.nSamplesI += std::int64_t(n);
    s.peakLin = std::max(s.peakLin, double(peak));
    published_.back() = s;
    published_.publish();
}

LiveMeter::Readings LiveMeter::stats() {
    const Stats s = published_.read();
    const double meanI = s.nSamplesI >= 1 ? s.msSumI / double(s.nSamplesI) : 0.0;
    return {loudnessLUFS(s.msEMA_M), loudnessLUFS(s.msEMA_S), loudnessLUFS(meanI),
            s.peakLin > 0 ? 20.0 * std::log10(s.peakLin) : -std::numeric_limits<double>::infinity()};
}

}  // namespace velmora
