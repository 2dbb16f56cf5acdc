#include "measurement/FileAnalysis.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "audio/NumberFormat.h"
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
    return LoudnessError{LoudnessError::Code::tooQuiet}.message();
}

double curveStepFor(double durationSeconds) { return std::max(1.0, durationSeconds / 600.0); }

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
    auto decoded = loadAudio(path, a.isVideo, streaming ? &*streaming : nullptr);
    if (!decoded) return decoded.error();
    PlanarAudio& audio = *decoded;

    a.channelCount = int(audio.channelCount());
    a.sampleRate = audio.sampleRate;
    a.truncated = audio.truncated;
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
    if (progress) progress(1.0);
    if (settings.keepAudio) a.audio = std::move(audio);
    return a;
}

}  // namespace velmora
