#include "measurement/FileAnalysis.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "audio/NumberFormat.h"
#include "measurement/DialogueAnalyzer.h"
#include "measurement/OverviewMeter.h"
#include "measurement/StreamingMeter.h"

namespace velmora {

std::string minutesAndSeconds(double durationSeconds) {
    const auto seconds = long(durationSeconds);
    const std::string secondsText = std::to_string(seconds % 60);
    return std::to_string(seconds / 60) + ":" + (secondsText.size() < 2 ? "0" : "") + secondsText;
}

std::string truncatedText(double durationSeconds) { return "tronqué à " + minutesAndSeconds(durationSeconds); }

std::string FileAnalysis::infoLine() const {
    return std::string(isVideo ? "vidéo · " : "") + minutesAndSeconds(durationSeconds()) + " · " +
           channelDescription(channelCount) + " · " + formatOneDecimal(sampleRate / 1000.0) + " kHz" +
           (truncated ? " · " + truncatedText(durationSeconds()) : "");
}

std::optional<std::string> FileAnalysis::unmeasurableReason() const {
    if (std::isfinite(result.integratedLUFS)) return std::nullopt;
    if (durationSeconds() < 0.4) return std::string("Fichier trop court pour être mesuré (< 0,4 s).");
    // The programme was measured and holds no speech: nothing is wrong with the file.
    if (result.programmeLUFS && std::isfinite(*result.programmeLUFS)) return std::string(noDialogueText);
    return LoudnessError{LoudnessError::Code::tooQuiet}.message();
}

double curveStepFor(double durationSeconds) { return std::max(1.0, durationSeconds / 600.0); }

namespace {

// Hands every decoded block to the measurement and to the overview, which runs on the decoding
// thread while the measurement's workers take the channels. The overview is spread over
// `knownFrames`, or else over the length the file announces.
class AnalysisListener final : public DecodeListener {
public:
    AnalysisListener(DecodeListener* measurement, bool overview, std::size_t knownFrames = 0)
        : analyzer_(measurement), wantsOverview_(overview), knownFrames_(knownFrames) {}

    void started(const PlanarAudio& audio, std::size_t expectedFrames) override {
        if (analyzer_) analyzer_->started(audio, expectedFrames);
        const std::size_t frames = knownFrames_ > 0 ? knownFrames_ : expectedFrames;
        if (wantsOverview_ && frames > 0) overview_.emplace(audio.channelCount(), audio.sampleRate, frames);
        pointers_.resize(audio.channelCount());
    }
    void framesDecoded(const PlanarAudio& audio, std::size_t begin, std::size_t end) override {
        if (analyzer_) analyzer_->framesDecoded(audio, begin, end);
        if (overview_) {
            for (std::size_t c = 0; c < pointers_.size(); ++c) pointers_[c] = audio.channels[c].data() + begin;
            overview_->process(pointers_.data(), end - begin);
        }
    }
    void quiesce() override {
        if (analyzer_) analyzer_->quiesce();
    }
    bool keepsSamples() const override { return analyzer_ ? analyzer_->keepsSamples() : false; }

    // The overview, when the file was as long as it was spread over.
    const OverviewMeter* overview() const {
        return overview_ && overview_->frames() == overview_->length() ? &*overview_ : nullptr;
    }

private:
    DecodeListener* analyzer_;
    bool wantsOverview_;
    std::size_t knownFrames_;
    std::optional<OverviewMeter> overview_;
    std::vector<const float*> pointers_;
};

// The overview of a file whose length is now known, in a pass of its own.
std::optional<LoudnessError> overviewPass(const std::string& path, bool isVideo, std::size_t frames, FileAnalysis& a) {
    AnalysisListener listener(nullptr, true, frames);
    auto decoded = loadAudio(path, isVideo, &listener);
    if (!decoded) return decoded.error();
    const OverviewMeter* overview = listener.overview();
    if (!overview) return LoudnessError{LoudnessError::Code::sourceChanged};
    a.waveformPeaks = overview->waveformPeaks();
    a.spectrumBins = overview->spectrum();
    return std::nullopt;
}

}  // namespace

Expected<FileAnalysis> analyseFile(const std::string& path, const AnalysisSettings& settings,
                                   const ProgressFn& progress) {
    FileAnalysis a;
    a.isVideo = isVideoPath(path);
    // Decoding takes most of the time of a compressed file, so it owns the first part of the bar.
    // The measurement (with the speech detector in dialogue mode) and the overview run while
    // decoding, and when nothing else needs the samples they are never held whole: one pass
    // through a small window.
    LoudnessAnalyzer streaming(progress, settings.keepAudio);
    streaming.measureEnergiesAlways(settings.channelEnergies);
    // Dialogue gating listens for speech beside the meters, from the same decoded pieces.
    std::optional<DialogueAnalyzer> dialogue;
    if (settings.dialogueGating)
        dialogue.emplace(streaming, [&settings](const PlanarAudio& audio) {
            return resolveChannelWeights(int(audio.channelCount()), settings.layout, settings.order,
                                         audio.declaredPositions);
        });
    AnalysisListener listener(dialogue ? static_cast<DecodeListener*>(&*dialogue) : &streaming, settings.overview);
    auto decoded = loadAudio(path, a.isVideo, &listener);
    if (!decoded) return decoded.error();
    PlanarAudio& audio = *decoded;

    a.channelCount = int(audio.channelCount());
    a.sampleRate = audio.sampleRate;
    a.truncated = audio.truncated;
    a.frameCount = streaming.frames();
    a.declaredPositions = audio.declaredPositions;
    a.weights = resolveChannelWeights(a.channelCount, settings.layout, settings.order, audio.declaredPositions);
    a.curveStep = curveStepFor(a.durationSeconds());
    streaming.wait();
    a.result = dialogue ? dialogue->result(a.weights) : streaming.result(a.weights);
    a.shortTermCurve = streaming.shortTermCurve(a.weights, a.curveStep);
    a.detail = streaming.detail(a.weights);
    if (a.channelCount == 6 || settings.channelEnergies) {
        a.energies = streaming.channelEnergies();
        if (a.channelCount == 6) {
            if (const auto order = fivePointOneOrder(settings.order, audio.declaredPositions))
                a.inversion = detectInversion(a.energies, *order);
        }
    }
    if (settings.overview) {
        if (const OverviewMeter* overview = listener.overview()) {
            a.waveformPeaks = overview->waveformPeaks();
            a.spectrumBins = overview->spectrum();
        } else if (auto failure = overviewPass(path, a.isVideo, a.frameCount, a)) {
            return *failure;
        }
    }
    if (progress) progress(1.0);
    if (settings.keepAudio) a.audio = std::move(audio);
    return a;
}

}  // namespace velmora
