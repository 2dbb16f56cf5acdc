#include "measurement/FileAnalysis.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "audio/NumberFormat.h"
#include "measurement/OverviewMeter.h"
#include "measurement/StreamingMeter.h"

namespace velmora {

std::string FileAnalysis::infoLine() const {
    const auto seconds = long(durationSeconds());
    const std::string secondsText = std::to_string(seconds % 60);
    return std::string(isVideo ? "vidéo · " : "") + std::to_string(seconds / 60) + ":" +
           (secondsText.size() < 2 ? "0" : "") + secondsText + " · " + channelDescription(channelCount) + " · " +
           formatOneDecimal(sampleRate / 1000.0) + " kHz";
}

std::optional<std::string> FileAnalysis::unmeasurableReason() const {
    if (std::isfinite(result.integratedLUFS)) return std::nullopt;
    if (durationSeconds() < 0.4) return std::string("Fichier trop court pour être mesuré (< 0,4 s).");
    return LoudnessError{LoudnessError::Code::tooQuiet}.message();
}

double curveStepFor(double durationSeconds) { return std::max(1.0, durationSeconds / 600.0); }

namespace {

// Hands every decoded block to the measurement and to the overview, which runs on the decoding
// thread while the measurement's workers take the channels.
class AnalysisListener final : public DecodeListener {
public:
    // Without an analyzer (the dialogue measurement) the reader keeps the whole programme, and the
    // overview is taken from it afterwards.
    AnalysisListener(LoudnessAnalyzer* analyzer, bool overview) : analyzer_(analyzer), wantsOverview_(overview && analyzer) {}

    void started(const PlanarAudio& audio, std::size_t expectedFrames) override {
        if (analyzer_) analyzer_->started(audio, expectedFrames);
        if (wantsOverview_ && expectedFrames > 0) overview_.emplace(audio.channelCount(), audio.sampleRate, expectedFrames);
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
    bool keepsSamples() const override { return analyzer_ ? analyzer_->keepsSamples() : true; }

    // The overview, when the file was as long as it announced.
    const OverviewMeter* overview() const {
        return overview_ && overview_->frames() == overview_->length() ? &*overview_ : nullptr;
    }

private:
    LoudnessAnalyzer* analyzer_;
    bool wantsOverview_;
    std::optional<OverviewMeter> overview_;
    std::vector<const float*> pointers_;
};

// The overview of a file whose length is now known, in a pass of its own.
std::optional<LoudnessError> overviewPass(const std::string& path, bool isVideo, std::size_t frames, FileAnalysis& a) {
    class Listener final : public DecodeListener {
    public:
        explicit Listener(std::size_t frames) : frames_(frames) {}
        void started(const PlanarAudio& audio, std::size_t) override {
            overview.emplace(audio.channelCount(), audio.sampleRate, frames_);
            pointers_.resize(audio.channelCount());
        }
        void framesDecoded(const PlanarAudio& audio, std::size_t begin, std::size_t end) override {
            for (std::size_t c = 0; c < pointers_.size(); ++c) pointers_[c] = audio.channels[c].data() + begin;
            overview->process(pointers_.data(), end - begin);
        }
        void quiesce() override {}
        bool keepsSamples() const override { return false; }
        std::optional<OverviewMeter> overview;

    private:
        std::size_t frames_;
        std::vector<const float*> pointers_;
    } listener(frames);
    auto decoded = loadAudio(path, isVideo, &listener);
    if (!decoded) return decoded.error();
    if (!listener.overview || listener.overview->frames() != frames) return LoudnessError{LoudnessError::Code::sourceChanged};
    a.waveformPeaks = listener.overview->waveformPeaks();
    a.spectrumBins = listener.overview->spectrum();
    return std::nullopt;
}

}  // namespace

Expected<FileAnalysis> analyseFile(const std::string& path, const AnalysisSettings& settings,
                                   const ProgressFn& progress) {
    FileAnalysis a;
    a.isVideo = isVideoPath(path);
    // Decoding takes most of the time of a compressed file, so it owns the first part of the bar.
    // The standard measurement runs while decoding, and when nothing else needs the samples
    // they are never held whole: one pass through a small window.
    std::optional<LoudnessAnalyzer> streaming;
    if (!settings.dialogueGating) {
        streaming.emplace(progress, settings.keepAudio);
        streaming->measureEnergiesAlways(settings.channelEnergies);
    }
    AnalysisListener listener(streaming ? &*streaming : nullptr, settings.overview);
    auto decoded = loadAudio(path, a.isVideo, &listener);
    if (!decoded) return decoded.error();
    PlanarAudio& audio = *decoded;

    a.channelCount = int(audio.channelCount());
    a.sampleRate = audio.sampleRate;
    a.frameCount = streaming ? streaming->frames() : audio.frameCount();
    a.weights = resolveChannelWeights(a.channelCount, settings.layout, settings.order, audio.declaredPositions);
    a.curveStep = curveStepFor(a.durationSeconds());
    if (streaming) {
        streaming->wait();
        a.result = streaming->result(a.weights);
        a.shortTermCurve = streaming->shortTermCurve(a.weights, a.curveStep);
    } else {
        a.result = LoudnessEngine::measureDialogue(audio.channels, a.weights, audio.sampleRate, progress);
        a.shortTermCurve = LoudnessEngine::shortTermCurve(audio.channels, a.weights, audio.sampleRate, a.curveStep);
    }
    if (a.channelCount == 6 || settings.channelEnergies) {
        a.energies = streaming ? streaming->channelEnergies() : channelEnergies(audio.channels, audio.sampleRate);
        if (a.channelCount == 6) {
            if (const auto order = fivePointOneOrder(settings.order, audio.declaredPositions))
                a.inversion = detectInversion(a.energies, *order);
        }
    }
    if (settings.overview) {
        if (!streaming) {
            a.waveformPeaks = waveformPeaks(audio.channels);
            a.spectrumBins = spectrum(audio.channels, OverviewMeter::bandCount, audio.sampleRate);
        } else if (const OverviewMeter* overview = listener.overview()) {
            a.waveformPeaks = overview->waveformPeaks();
            a.spectrumBins = overview->spectrum();
        } else if (auto failure = overviewPass(path, a.isVideo, a.frameCount, a)) {
            return *failure;
        }
    }
    if (progress) progress(1.0);
    if (settings.keepAudio) a.audio = std::move(audio);
    else a.audio.declaredPositions = std::move(audio.declaredPositions);  // its masters declare the same speakers
    return a;
}

}  // namespace velmora
