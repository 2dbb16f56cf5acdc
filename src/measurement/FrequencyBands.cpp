#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>

#include "measurement/Diagnostics.h"

namespace velmora {

namespace {

constexpr std::size_t N = SpectrumTransform::frameSize;

// Hann window scaled to unit RMS, so the display level does not depend on the window.
const std::vector<float>& hannWindow() {
    static const std::vector<float> window = [] {
        std::vector<float> w(N);
        for (std::size_t n = 0; n < N; ++n)
            w[n] = float(0.8165 * (1.0 - std::cos(2.0 * std::numbers::pi * double(n) / double(N))));
        return w;
    }();
    return window;
}

}  // namespace

SpectrumTransform::SpectrumTransform() : bins_(N / 2 + 1) {
    const float scale = 1.0f;
    hannWindow();
    if (av_tx_init(&ctx_, &fft_, AV_TX_FLOAT_RDFT, 0, int(N), &scale, AV_TX_UNALIGNED) < 0) ctx_ = nullptr;
}

SpectrumTransform::~SpectrumTransform() { av_tx_uninit(&ctx_); }

void SpectrumTransform::add(float* frame, double* magnitude) noexcept {
    if (!ctx_) return;
    const std::vector<float>& window = hannWindow();
    for (std::size_t n = 0; n < N; ++n) frame[n] *= window[n];
    fft_(ctx_, bins_.data(), frame, sizeof(float));
    for (std::size_t k = 0; k < N / 2; ++k) magnitude[k] += std::hypot(bins_[k].re, bins_[k].im);
}

SpectrumFrames spectrumFrames(std::size_t L) {
    if (L < N) return {0, 0};
    constexpr std::size_t maxFrames = 120;
    const std::size_t count = (L - N < N) ? 1 : std::min((L - N) / N + 1, maxFrames);
    return {count, count > 1 ? (L - N) / (count - 1) : 0};
}

std::vector<float> spectrumBands(std::vector<double> magnitude, std::size_t frames, int bandCount, double fs,
                                 double lowestHz, double highestHz) {
    if (frames == 0 || bandCount < 1 || fs <= 0 || magnitude.size() < N / 2) return {};
    for (auto& m : magnitude) m /= double(frames);

    std::vector<float> bands(std::size_t(bandCount), 0.0f);
    std::vector<double> bandMag(std::size_t(bandCount), 0.0);
    // Which band each bin falls in depends only on the rate and the bands asked for: worked out
    // once for them (per thread), not with a logarithm per bin at every call.
    struct BandMap {
        double fs = 0, lowestHz = 0, highestHz = 0;
        int bandCount = 0;
        std::vector<std::size_t> band;  // per bin; bandCount for a bin outside every band
    };
    thread_local BandMap map;
    if (map.fs != fs || map.bandCount != bandCount || map.lowestHz != lowestHz || map.highestHz != highestHz) {
        map = {fs, lowestHz, highestHz, bandCount, std::vector<std::size_t>(N / 2, std::size_t(bandCount))};
        const double logLow = std::log10(lowestHz), span = std::log10(highestHz) - logLow;
        for (std::size_t k = 1; k < N / 2; ++k) {
            const double freq = double(k) * fs / double(N);
            if (freq < lowestHz || freq >= highestHz) continue;
            map.band[k] = std::size_t((std::log10(freq) - logLow) / span * bandCount);
        }
    }
    for (std::size_t k = 1; k < N / 2; ++k) {
        const std::size_t b = map.band[k];
        if (b < bands.size()) bandMag[b] = std::max(bandMag[b], magnitude[k]);
    }
    for (std::size_t b = 0; b < bands.size(); ++b) {
        if (bandMag[b] <= 0.0) continue;  // an empty band stays 0 and is filled below
        const double level = (20.0 * std::log10(std::max(bandMag[b], 1e-9) / 1024.0) + 80.0) / 86.0;
        bands[b] = float(std::clamp(level, 0.0, 1.0));
    }
    for (std::size_t b = 1; b < bands.size(); ++b)
        if (bands[b] == 0.0f) bands[b] = 0.9f * bands[b - 1];
    return bands;
}

std::vector<float> spectrum(const std::vector<std::vector<float>>& channels, int bandCount, double fs,
                            double lowestHz, double highestHz) {
    if (channels.empty() || fs <= 0 || channels.front().size() < N || bandCount < 1) return {};
    const auto [count, hop] = spectrumFrames(channels.front().size());
    // The transform is made once per thread: the window's live spectrum asks for one frame
    // twenty times a second, and making it costs more than the transform.
    thread_local SpectrumTransform transform;
    std::vector<float> frame(N + 2);
    std::vector<double> magnitude(N / 2, 0.0);
    const float perChannel = 1.0f / float(channels.size());
    for (std::size_t f = 0; f < count; ++f) {
        const std::size_t start = f * hop;
        std::fill(frame.begin(), frame.end(), 0.0f);
        for (const auto& ch : channels)
            for (std::size_t n = 0; n < N; ++n) frame[n] += ch[start + n] * perChannel;
        transform.add(frame.data(), magnitude.data());
    }
    return spectrumBands(std::move(magnitude), count, bandCount, fs, lowestHz, highestHz);
}

}  // namespace velmora
