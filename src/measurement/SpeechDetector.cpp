#include "measurement/SpeechDetector.h"

#include <algorithm>
#include <cmath>

namespace velmora {

float speechProbability(const SpeechModelWeights& m, const float* x) noexcept {
    constexpr std::size_t inputs = SpeechModelWeights::inputs, hidden = SpeechModelWeights::hidden;
    // The weights input by input, the hidden units side by side: the inner loop is the vector lanes.
    struct Columns {
        const SpeechModelWeights* model = nullptr;
        std::array<float, inputs * hidden> weights{};
    };
    static thread_local Columns columns;
    if (columns.model != &m) {
        columns.model = &m;
        for (std::size_t h = 0; h < hidden; ++h)
            for (std::size_t i = 0; i < inputs; ++i) columns.weights[i * hidden + h] = m.hiddenWeights[h * inputs + i];
    }
    std::array<float, hidden> a = m.hiddenBias;
    for (std::size_t i = 0; i < inputs; ++i) {
        const float z = (x[i] - m.mean[i]) * m.scale[i];
        const float* w = columns.weights.data() + i * hidden;
        for (std::size_t h = 0; h < hidden; ++h) a[h] += w[h] * z;
    }
    float out = m.outputBias;
    for (std::size_t h = 0; h < hidden; ++h) {
        // tanh through one exponential, at a third of the library's cost and within 2e-7 of it
        // (past the clamp tanh is ±1 in floats anyway).
        const float e = std::exp(2.0f * std::clamp(a[h], -10.0f, 10.0f));
        out += m.outputWeights[h] * ((e - 1.0f) / (e + 1.0f));
    }
    return 1.0f / (1.0f + std::exp(-out));
}

void SpeechStream::prepare(double sampleRate, std::size_t expectedFrames) {
    resampler_ = std::make_unique<StreamResampler>(sampleRate, SpeechFeatures::sampleRate, sliceSamples,
                                                   ResampleQuality::low);
    features_ = std::make_unique<SpeechFeatures>();
    probability_.clear();
    frames_.clear();
    if (sampleRate > 0) probability_.reserve(std::size_t(double(expectedFrames) / sampleRate / 0.03) + 2);
}

void SpeechStream::judge(std::span<const float> samples16k) {
    features_->push(samples16k, [this](std::size_t, const float* f, bool audible) {
        probability_.push_back(audible ? speechProbability(speechModelWeights, f) : silent);
    });
}

void SpeechStream::feed(std::span<const float> mono) {
    if (!resampler_ || !resampler_->valid()) return;
    for (std::size_t at = 0; at < mono.size(); at += sliceSamples)
        judge(resampler_->process(mono.subspan(at, std::min(sliceSamples, mono.size() - at))));
}

void SpeechStream::finish() {
    if (!resampler_ || !resampler_->valid()) return;
    judge(resampler_->flush());
    features_->finish([this](std::size_t, const float* f, bool audible) {
        probability_.push_back(audible ? speechProbability(speechModelWeights, f) : silent);
    });
    // One frame's judgement is noisy: the mean over 210 ms decides. Speech then starts a little
    // before the classifier is sure of it, and trails after, where the second of context it
    // judges is part music: each decision of speech spreads to its neighbours.
    const std::size_t n = probability_.size();
    const std::size_t half = smoothingHalf, spread = spreadFrames;
    std::vector<bool> raw(n, false);
    for (std::size_t t = 0; t < n; ++t) {
        if (probability_[t] == silent) continue;
        const std::size_t a = t > half ? t - half : 0, b = std::min(n, t + half + 1);
        double sum = 0;
        for (std::size_t k = a; k < b; ++k) sum += std::max(0.0f, probability_[k]);
        raw[t] = sum / double(b - a) >= speechThreshold;
    }
    frames_.assign(n, false);
    for (std::size_t t = 0; t < n; ++t) {
        if (!raw[t]) continue;
        const std::size_t a = t > spread ? t - spread : 0, b = std::min(n, t + spread + 1);
        for (std::size_t k = a; k < b; ++k) frames_[k] = true;
    }
}

std::vector<bool> SpeechDetector::detect(std::span<const float> mono, double sampleRate) const {
    SpeechStream stream;
    stream.prepare(sampleRate, mono.size());
    stream.feed(mono);
    stream.finish();
    return stream.frames();
}

}  // namespace velmora
