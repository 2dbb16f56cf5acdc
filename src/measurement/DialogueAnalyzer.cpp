#include "measurement/DialogueAnalyzer.h"

#include <algorithm>
#include <cmath>

namespace velmora {

DialogueAnalyzer::DialogueAnalyzer(LoudnessAnalyzer& loudness, WeightsFor weightsFor)
    : loudness_(loudness), weightsFor_(std::move(weightsFor)) {}

DialogueAnalyzer::~DialogueAnalyzer() {
    quiesce();
    if (!worker_.joinable()) return;
    stopping_.store(true);
    queued_.release();
    worker_.join();
}

void DialogueAnalyzer::quiesce() {
    loudness_.quiesce();
    for (std::size_t d = done_.load(std::memory_order_acquire); d != pushed_; d = done_.load(std::memory_order_acquire))
        done_.wait(d, std::memory_order_acquire);
}

void DialogueAnalyzer::work() {
    for (std::size_t taken = 0;; ++taken) {
        queued_.acquire();
        if (stopping_.load()) return;  // only once everything queued was listened to (quiesce)
        const auto [begin, end] = ring_[taken % ringSize];
        listen(*audio_, begin, end);
        done_.store(taken + 1, std::memory_order_release);
        done_.notify_all();
    }
}

void DialogueAnalyzer::started(const PlanarAudio& audio, std::size_t expectedFrames) {
    quiesce();
    loudness_.started(audio, expectedFrames);
    if (!worker_.joinable()) worker_ = std::thread([this] { work(); });
    foldWeights_ = weightsFor_ ? weightsFor_(audio) : std::vector<double>(audio.channelCount(), 1.0);
    mono_.assign(SpeechStream::sliceSamples, 0.0f);
    speech_.prepare(audio.sampleRate, expectedFrames);
    finished_ = false;
}

void DialogueAnalyzer::framesDecoded(const PlanarAudio& audio, std::size_t begin, std::size_t end) {
    loudness_.framesDecoded(audio, begin, end);
    // The decoder writes the window's later frames meanwhile, never these: it turns the window
    // over, or grows it, only after quiesce().
    if (pushed_ - done_.load(std::memory_order_acquire) == ringSize) quiesce();
    audio_ = &audio;
    ring_[pushed_ % ringSize] = {begin, end};
    ++pushed_;
    queued_.release();
}

void DialogueAnalyzer::listen(const PlanarAudio& audio, std::size_t begin, std::size_t end) {
    // The fold-down of monoForDetection, slice by slice.
    const std::size_t usable = std::min(audio.channelCount(), foldWeights_.size());
    std::size_t k = 0;
    for (std::size_t i = 0; i < usable; ++i) k += foldWeights_[i] > 0.01 ? 1 : 0;
    for (std::size_t at = begin; at < end; at += mono_.size()) {
        const std::size_t n = std::min(mono_.size(), end - at);
        std::fill_n(mono_.begin(), n, 0.0f);
        for (std::size_t i = 0; i < usable; ++i) {
            if (foldWeights_[i] <= 0.01) continue;
            const float g = float(k > 0 ? foldWeights_[i] / double(k) : foldWeights_[i]);
            const float* x = audio.channels[i].data() + at;
            for (std::size_t s = 0; s < n; ++s) mono_[s] += x[s] * g;
        }
        speech_.feed({mono_.data(), n});
    }
}

LoudnessResult DialogueAnalyzer::result(std::span<const double> weights) {
    quiesce();
    if (!finished_) speech_.finish(), finished_ = true;
    LoudnessResult r = loudness_.result(weights);
    applyDialogueGating(r, loudness_.momentaryBlocks(), loudness_.shortTermBlocks(), weights, speech_.frames());
    return r;
}

std::string dialogueShareText(double share) {
    return "Part de dialogue : " + std::to_string(std::lround(std::clamp(share, 0.0, 1.0) * 100.0)) + " %";
}

void applyDialogueGating(LoudnessResult& r, const BlockEnergies& momentary, const BlockEnergies& shortTerm,
                         std::span<const double> weights, const std::vector<bool>& speechFrames) {
    const std::size_t blockCount = momentary.empty() ? 0 : momentary.front().size();
    const auto speech = speechBlockFlags(speechFrames, blockCount);
    r.programmeLUFS = r.integratedLUFS;
    r.integratedLUFS = LoudnessEngine::maskedIntegratedLoudness(momentary, weights, speech);

    const auto gated = LoudnessEngine::gatedBlocks(momentary, weights);
    std::size_t kept = 0, spoken = 0;
    for (std::size_t j = 0; j < blockCount; ++j) {
        kept += gated[j] ? 1 : 0;
        spoken += gated[j] && speech[j] ? 1 : 0;
    }
    r.dialogueShare = kept > 0 ? double(spoken) / double(kept) : 0.0;

    // A 3 s window is dialogue when at least half of the 400 ms blocks inside it carry speech;
    // it starts with momentary block j and holds the 27 blocks j … j + 26.
    r.dialogueShortTermMin.reset();
    r.dialogueShortTermMax.reset();
    const std::size_t windows = shortTerm.empty() ? 0 : shortTerm.front().size();
    constexpr std::size_t inside = 27;
    std::size_t count = 0;
    for (std::size_t j = 0; j < blockCount && j < inside; ++j) count += speech[j] ? 1 : 0;
    for (std::size_t j = 0; j < windows; ++j) {
        if (j > 0) {
            count -= speech[j - 1] ? 1 : 0;
            if (j + inside - 1 < blockCount) count += speech[j + inside - 1] ? 1 : 0;
        }
        if (2 * count < inside) continue;
        double sum = 0.0;
        for (std::size_t c = 0; c < shortTerm.size(); ++c) sum += (c < weights.size() ? weights[c] : 1.0) * shortTerm[c][j];
        if (!(sum > 0.0)) continue;
        const double l = LoudnessEngine::loudnessOffset + 10.0 * std::log10(sum);
        if (l < LoudnessEngine::absoluteGateLUFS) continue;
        r.dialogueShortTermMin = std::min(r.dialogueShortTermMin.value_or(l), l);
        r.dialogueShortTermMax = std::max(r.dialogueShortTermMax.value_or(l), l);
    }
}

}  // namespace velmora
