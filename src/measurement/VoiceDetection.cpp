#include "measurement/VoiceDetection.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace velmora {

namespace {
// One band edge as a second-order section (Q 0.707), run from rest in transposed form II
// with float storage after the pass.
void bandEdge(std::vector<float>& x, double cutoffHz, double fs, bool highPass) {
    const double w = 2.0 * std::numbers::pi * cutoffHz / fs;
    const double alpha = std::sin(w) / 1.414, a0 = 1.0 + alpha, cw = std::cos(w);
    double b0, b1, b2;
    if (highPass) {
        b0 = b2 = (1.0 + cw) / 2.0 / a0;
        b1 = -(1.0 + cw) / a0;
    } else {
        b0 = b2 = (1.0 - cw) / 2.0 / a0;
        b1 = (1.0 - cw) / a0;
    }
    const double a1 = -2.0 * cw / a0, a2 = (1.0 - alpha) / a0;
    double s1 = 0.0, s2 = 0.0;
    for (auto& v : x) {
        const double in = v;
        const double y = s1 + b0 * in;
        s1 = s2 + b1 * in - a1 * y;
        s2 = b2 * in - a2 * y;
        v = float(y);
    }
}
}  // namespace

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
    if (std::fabs(sampleRate - fs) >= 0.5 && sampleRate > 0) {
        const double r = fs / sampleRate;
        const std::size_t L = mono.size();
        const auto outLength = std::size_t(r * double(L));
        x.resize(outLength);
        for (std::size_t i = 0; i < outLength; ++i) {
            const double p = double(i) / r;
            const auto j = std::size_t(p);
            const double t = p - double(j);
            x[i] = float((1.0 - t) * mono[j] + t * mono[std::min(j + 1, L - 1)]);
        }
    } else {
        x.assign(mono.begin(), mono.end());
    }
    bandEdge(x, 300.0, fs, true);
    bandEdge(x, 3400.0, fs, false);

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
