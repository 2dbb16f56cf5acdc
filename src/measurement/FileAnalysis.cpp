#include "measurement/FileAnalysis.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "audio/NumberFormat.h"
#include "measurement/DialogueAnalyzer.h"
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
    // The programme was measured and holds no speech: nothing is wrong with the file.
    if (result.programmeLUFS && std::isfinite(*result.programmeLUFS)) return std::string(noDialogueText);
    return LoudnessError{LoudnessError::Code::tooQuiet}.message();
}

double curveStepFor(double durationSeconds) { return std::max(1.0, durationSeconds / 600.0); }

Expected<FileAnalysis> analyseFile(const std::string& path, const AnalysisSettings& settings,
                                   const ProgressFn& progress) {
    FileAnalysis a;
    a.isVideo = isVideoPath(path);
    // Decoding takes most of the time of a compressed file, so it owns the first part of the bar.
    // The measurement (with the speech detector in dialogue mode) runs while decoding, and when
    // nothing else needs the samples they are never held whole: one pass through a small window.
    LoudnessAnalyzer streaming(progress, settings.keepAudio);
    streaming.measureEnergiesAlways(settings.channelEnergies);
    // Dialogue gating listens for speech beside the meters, from the same decoded pieces.
    std::optional<DialogueAnalyzer> dialogue;
    if (settings.dialogueGating)
        dialogue.emplace(streaming, [&settings](const PlanarAudio& audio) {
            return resolveChannelWeights(int(audio.channelCount()), settings.layout, settings.order,
                                         audio.declaredPositions);
        });
    DecodeListener* listener = dialogue ? static_cast<DecodeListener*>(&*dialogue) : &streaming;
    auto decoded = loadAudio(path, a.isVideo, listener);
    if (!decoded) return decoded.error();
    PlanarAudio& audio = *decoded;

    a.channelCount = int(audio.channelCount());
    a.sampleRate = audio.sampleRate;
    a.frameCount = streaming.frames();
    a.weights = resolveChannelWeights(a.channelCount, settings.layout, settings.order, audio.declaredPositions);
    a.curveStep = curveStepFor(a.durationSeconds());
    streaming.wait();
    a.result = dialogue ? dialogue->result(a.weights) : streaming.result(a.weights);
    a.shortTermCurve = streaming.shortTermCurve(a.weights, a.curveStep);
    if (a.channelCount == 6 || settings.channelEnergies) {
        a.energies = streaming.channelEnergies();
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
