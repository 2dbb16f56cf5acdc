#include "measurement/VoiceDetection.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "audio/Resample.h"
#include "measurement/Biquad.h"

namespace velmora {

std::vector<float> monoForDetection(const std::vector<std::vector<float>>& channels, std::span<const double> weights) {
    if (channels.empty() || channels.front().empty()) return {};
    const std::size_t usable = std::min(channels.size(), weights.size());
    std::size_t k = 0;
    for (std::size_t i = 0; i < usable; ++i)
        if (weights[i] > 0.01) ++k;
    std::vector<float> out(channels.front().size(), 0.0f);
    for (std::size_t i = 0; i < usable; ++i) {
        if (weights[i] <= 0.01) continue;
        const float g = float(k > 0 ? weights[i] / double(k) : weights[i]);
        const auto& ch = channels[i];
        const std::size_t n = std::min(out.size(), ch.size());
        for (std::size_t s = 0; s < n; ++s) out[s] += ch[s] * g;
    }
    return out;
}

std::vector<bool> applyHangover(std::vector<bool> flags, int hangoverFrames) {
    int counter = 0;
    for (std::size_t k = 0; k < flags.size(); ++k) {
        if (flags[k]) {
            counter = hangoverFrames;
        } else if (counter >= 1) {
            flags[k] = true;
            --counter;
        }
    }
    return flags;
}

std::vector<bool> EnergyVAD::detectVoice(std::span<const float> mono, double sampleRate) const {
    const double fs = preferredSampleRate;
    std::vector<float> x;
    // Band-limited before the rate drops: decimating without a low-pass folds cymbals and
    // sibilance above the new Nyquist into the speech band, where they read as voice. The
    // low-quality recipe is ample for a 300-3400 Hz analysis: at 16 kHz it is flat to 6 kHz and
    // over 100 dB down past 8 kHz, and frames stay aligned with the input.
    if (std::fabs(sampleRate - fs) >= 0.5 && sampleRate > 0)
        x = resample(mono, sampleRate, fs, ResampleQuality::low);
    else
        x.assign(mono.begin(), mono.end());
    // The speech band, each edge a second-order section (Q 0.707) run from rest.
    const Biquad band[] = {designHighPass(fs, 300.0, 0.707), designLowPass(fs, 3400.0, 0.707)};
    applyBiquads(band, 2, x.data(), x.size());

    const auto F = std::size_t(fs * 0.03);
    if (F == 0 || x.size() < F) return {};
    const std::size_t frames = x.size() / F;
    std::vector<double> level(frames);
    double loudest = -120.0;
    for (std::size_t k = 0; k < frames; ++k) {
        double sum = 0.0;
        for (std::size_t i = 0; i < F; ++i) sum += double(x[k * F + i]) * double(x[k * F + i]);
        const double ms = sum / double(F);
        level[k] = ms > 1e-12 ? 10.0 * std::log10(ms) : -120.0;
        loudest = std::max(loudest, level[k]);
    }
    std::vector<bool> voiced(frames, false);
    if (loudest < -60.0) return voiced;
    const double threshold = voiceThresholdDB + loudest;
    for (std::size_t k = 0; k < frames; ++k) voiced[k] = level[k] >= -60.0 && level[k] >= threshold;
    return applyHangover(std::move(voiced), hangoverFrames);
}

std::vector<bool> speechBlockFlags(const std::vector<bool>& frames, std::size_t blockCount) {
    std::vector<bool> flags(blockCount, false);
    const std::size_t frameCount = frames.size();
    for (std::size_t j = 0; j < blockCount; ++j) {
        const std::size_t s = 100 * j;  // ms
        const std::size_t a = s / 30, b = (s + 400) / 30, c = std::min(b, frameCount);
        if (a >= frameCount) continue;
        std::size_t voiced = 0;
        for (std::size_t k = a; k < c; ++k) voiced += frames[k] ? 1 : 0;
        flags[j] = double(voiced) / double(std::max<std::size_t>(c - a, 1)) >= 0.5;
    }
    return flags;
}

}  // namespace velmora
