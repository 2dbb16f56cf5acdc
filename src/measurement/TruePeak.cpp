#include <algorithm>
#include <cmath>
#include <cstring>

#include "measurement/ChannelMeter.h"
#include "measurement/Kernels.h"
#include "measurement/WorkerPool.h"

namespace velmora {
namespace kernels {

const double truePeakFilter[truePeakTaps] = {
    -0.00004849, -0.00034826, -0.00075355, -0.00058195, 0.00099027,  0.00381642,  0.00580623,  0.00352262,
    -0.00500248, -0.01671582, -0.02264306, -0.01247668, 0.01634885,  0.05109016,  0.06551585,  0.03458391,
    -0.04396181, -0.1352094,  -0.17377566, -0.09428181, 0.12806663,  0.45095171,  0.77230473,  0.9728016,
    0.9728016,   0.77230473,  0.45095171,  0.12806663,  -0.09428181, -0.17377566, -0.1352094,  -0.04396181,
    0.03458391,  0.06551585,  0.05109016,  0.01634885,  -0.01247668, -0.02264306, -0.01671582, -0.00500248,
    0.00352262,  0.00580623,  0.00381642,  0.00099027,  -0.00058195, -0.00075355, -0.00034826, -0.00004849,
};

double truePeakReach() noexcept {
    static const double reach = [] {
        double worst = 0.0;
        for (int q = 0; q < 4; ++q) {
            double sum = 0.0;
            for (int j = q; j < truePeakTaps; j += 4) sum += std::fabs(truePeakFilter[j]);
            worst = std::max(worst, sum);
        }
        return worst;
    }();
    return reach;
}

namespace {
using v4d = double __attribute__((vector_size(32)));
}  // namespace

// Written without helper functions: a function returning a vector type would change its ABI
// between the two clones.
#define VELMORA_ABS(v) ((v) < 0 ? -(v) : (v))
#define VELMORA_MAX(a, b) ((a) > (b) ? (a) : (b))
// The four phases' sums for outputs i … i + 3, one vector per phase.
#define VELMORA_PHASE_SUMS(x, i, h, p0, p1, p2, p3)     \
    v4d p0 = {0, 0, 0, 0}, p1 = p0, p2 = p0, p3 = p0;  \
    for (int j = 0; j < 12; ++j) {                      \
        v4d xv;                                         \
        std::memcpy(&xv, (x) + (i) - j, sizeof xv);     \
        p0 += (h)[4 * j + 0] * xv;                      \
        p1 += (h)[4 * j + 1] * xv;                      \
        p2 += (h)[4 * j + 2] * xv;                      \
        p3 += (h)[4 * j + 3] * xv;                      \
    }

// Four outputs at a time; each phase keeps its sum in a vector register and its maximum
// lane by lane, so nothing spills and no scalar reduction serialises the loop.
__attribute__((target_clones("arch=x86-64-v3", "default")))
double truePeakRun(const double* x, std::size_t n) noexcept {
    const double* h = truePeakFilter;
    v4d m = {0, 0, 0, 0};
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        VELMORA_PHASE_SUMS(x, i, h, p0, p1, p2, p3);
        v4d xi;
        std::memcpy(&xi, x + i, sizeof xi);
        p0 = VELMORA_ABS(p0);
        p1 = VELMORA_ABS(p1);
        p2 = VELMORA_ABS(p2);
        p3 = VELMORA_ABS(p3);
        xi = VELMORA_ABS(xi);
        p0 = VELMORA_MAX(p0, p1);
        p2 = VELMORA_MAX(p2, p3);
        p0 = VELMORA_MAX(p0, p2);
        m = VELMORA_MAX(m, p0);
        m = VELMORA_MAX(m, xi);
    }
    double peak = std::max(std::max(m[0], m[1]), std::max(m[2], m[3]));
    for (; i < n; ++i) {
        peak = std::max(peak, std::fabs(x[i]));
        for (int q = 0; q < 4; ++q) {
            double acc = 0.0;
            for (int j = 0; j < 12; ++j) acc += h[4 * j + q] * x[std::ptrdiff_t(i) - j];
            peak = std::max(peak, std::fabs(acc));
        }
    }
    return peak;
}

__attribute__((target_clones("arch=x86-64-v3", "default")))
void truePeakEnvelope(const double* x, std::size_t n, double* out) noexcept {
    const double* h = truePeakFilter;
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        VELMORA_PHASE_SUMS(x, i, h, p0, p1, p2, p3);
        p0 = VELMORA_ABS(p0);
        p1 = VELMORA_ABS(p1);
        p2 = VELMORA_ABS(p2);
        p3 = VELMORA_ABS(p3);
        p0 = VELMORA_MAX(p0, p1);
        p2 = VELMORA_MAX(p2, p3);
        p0 = VELMORA_MAX(p0, p2);
        std::memcpy(out + i, &p0, sizeof p0);
    }
    for (; i < n; ++i) {
        double peak = 0.0;
        for (int q = 0; q < 4; ++q) {
            double acc = 0.0;
            for (int j = 0; j < 12; ++j) acc += h[4 * j + q] * x[std::ptrdiff_t(i) - j];
            peak = std::max(peak, std::fabs(acc));
        }
        out[i] = peak;
    }
}

}  // namespace kernels

void TruePeakMeter::recordRuns(double sampleRate, int channel) {
    envelope_.assign(chunkFrames, 0.0);
    runs_ = std::make_unique<PeakRunRecorder>(sampleRate, channel);
}

double TruePeakMeter::peak() const { return std::max(peak_, 1e-12); }

void TruePeakMeter::process(const float* in, std::size_t n) noexcept {
    constexpr std::size_t H = kernels::truePeakHistory;
    while (n > 0) {
        const std::size_t m = std::min(n, chunkFrames);
        float chunkSamplePeak = 0.0f;
        for (std::size_t i = 0; i < m; ++i) {
            buffer_[H + i] = in[i];
            chunkSamplePeak = std::max(chunkSamplePeak, std::fabs(in[i]));
        }
        // Positions cost nothing per sample: a chunk is searched only when it beats the record.
        if (chunkSamplePeak > samplePeak_) {
            samplePeak_ = chunkSamplePeak;
            samplePeakFrame_ = processed_ + std::size_t(std::find_if(in, in + m, [&](float x) {
                                   return std::fabs(x) == chunkSamplePeak;
                               }) - in);
        }
        double chunkPeak = 0.0;
        if (runs_) {
            // The readings one by one cost a store per sample over truePeakRun, and give the same maximum.
            kernels::truePeakEnvelope(buffer_.data() + H, m, envelope_.data());
            double interpolated = 0.0;
            for (std::size_t i = 0; i < m; ++i) interpolated = std::max(interpolated, envelope_[i]);
            chunkPeak = std::max(interpolated, double(chunkSamplePeak));
            if (interpolated > PeakRunRecorder::lowestLevelLin()) runs_->readings(envelope_.data(), m, processed_);
            if (chunkSamplePeak >= clippingLevelLin || runs_->inClippedStretch()) runs_->samples(in, m, processed_);
        } else {
            chunkPeak = kernels::truePeakRun(buffer_.data() + H, m);
        }
        if (chunkPeak > peak_) {
            peak_ = chunkPeak;
            peakFrame_ = processed_;
        }
        processed_ += m;
        // The last eleven inputs become the history of the next run.
        std::memmove(buffer_.data(), buffer_.data() + m, H * sizeof(double));
        in += m;
        n -= m;
    }
}

double LoudnessEngine::channelTruePeak(std::span<const float> channel) {
    if (channel.empty()) return 1e-12;
    TruePeakMeter meter;
    meter.process(channel.data(), channel.size());
    return meter.peak();
}

double LoudnessEngine::measureTruePeak(const Channels& channels) {
    if (channels.empty()) return -240.0;
    std::vector<double> peaks(channels.size(), 1e-12);
    parallelFor(channels.size(), [&](std::size_t c) { peaks[c] = channelTruePeak(channels[c]); });
    return 20.0 * std::log10(*std::max_element(peaks.begin(), peaks.end()));
}

}  // namespace velmora
