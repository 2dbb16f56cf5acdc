#include "measurement/LoudnessEngine.h"

#include <algorithm>
#include <cmath>

#include "measurement/Kernels.h"
#include "measurement/DialogueAnalyzer.h"
#include "measurement/SpeechDetector.h"
#include "measurement/StreamingMeter.h"
#include "measurement/VoiceDetection.h"

namespace velmora {

namespace {
constexpr double negInf = -std::numeric_limits<double>::infinity();

// Feeds a decoded buffer through the analyser in slices, reporting progress between them.
void analyse(LoudnessAnalyzer& analyzer, const Channels& channels, double fs) {
    const std::size_t frames = channels.empty() ? 0 : channels.front().size();
    analyzer.prepare(channels.size(), fs, frames);
    constexpr std::size_t slice = std::size_t{1} << 18;
    std::vector<const float*> ptrs(channels.size());
    for (std::size_t pos = 0; pos < frames; pos += slice) {
        for (std::size_t c = 0; c < channels.size(); ++c) ptrs[c] = channels[c].data() + pos;
        analyzer.feed(ptrs, std::min(slice, frames - pos));
    }
    analyzer.wait();
}
}  // namespace

LoudnessResult LoudnessEngine::measure(const Channels& channels, std::span<const double> weights, double fs,
                                       const ProgressFn& progress, ProgrammeDetail* detail) {
    if (progress) progress(0.02);
    LoudnessAnalyzer analyzer(progress);
    analyse(analyzer, channels, fs);
    auto r = analyzer.result(weights);
    if (detail) *detail = analyzer.detail(weights);
    if (progress) progress(1.0);
    return r;
}

LoudnessResult LoudnessEngine::measureDialogue(const Channels& channels, std::span<const double> weights, double fs,
                                               const ProgressFn& progress, ProgrammeDetail* detail) {
    return measureDialogue(channels, weights, fs, progress, SpeechDetector{}, detail);
}

LoudnessResult LoudnessEngine::measureDialogue(const Channels& channels, std::span<const double> weights, double fs,
                                               const ProgressFn& progress, const VoiceActivityDetector& detector,
                                               ProgrammeDetail* detail) {
    if (progress) progress(0.02);
    const auto voiced = detector.detect(monoForDetection(channels, weights), fs);
    if (progress) progress(0.25);

    LoudnessAnalyzer analyzer([&](double f) {
        if (progress) progress(0.25 + 0.6 * f);
    });
    analyse(analyzer, channels, fs);
    auto r = analyzer.result(weights);
    applyDialogueGating(r, analyzer.momentaryBlocks(), analyzer.shortTermBlocks(), weights, voiced);
    if (detail) *detail = analyzer.detail(weights);
    if (progress) progress(1.0);
    return r;
}

std::pair<double, double> LoudnessEngine::windowedLoudness(const Channels& channels, std::span<const double> weights,
                                                           std::size_t endFrame, std::size_t window, double fs) {
    if (fs <= 0 || channels.empty()) return {negInf, negInf};
    const std::size_t frames = channels.front().size();
    const std::size_t end = std::min(endFrame, frames);
    const std::size_t start = end > window ? end - window : 0;
    const std::size_t length = end - start;
    if (length < std::size_t(fs * 0.05) || length == 0) return {negInf, negInf};

    const auto filter = kWeightingCoefficients(fs);
    double sum = 0.0, peak = 0.0;
    for (std::size_t c = 0; c < channels.size(); ++c) {
        const float* x = channels[c].data() + start;
        for (std::size_t i = 0; i < length; ++i) peak = std::max(peak, double(std::fabs(x[i])));
        const double w = c < weights.size() ? weights[c] : 1.0;
        if (w == 0.0) continue;
        // Both sections run as separate passes with float storage between them.
        std::vector<float> shelfOut(length);
        kernels::KWeightState st;
        KWeightingFilter shelfOnly{filter.shelf, identitySection};
        KWeightingFilter highPassOnly{filter.highPass, identitySection};
        kernels::kWeight(shelfOnly, st, x, shelfOut.data(), length);
        kernels::KWeightState st2;
        sum += w * kernels::kWeight(highPassOnly, st2, shelfOut.data(), nullptr, length) / double(length);
    }
    return {sum > 0.0 ? loudnessOffset + 10.0 * std::log10(sum) : negInf, peak > 0.0 ? 20.0 * std::log10(peak) : negInf};
}

}  // namespace velmora
