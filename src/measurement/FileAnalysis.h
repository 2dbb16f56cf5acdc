#pragma once
// Decoding and measuring one file in a single pass: the measurement, in dialogue mode the speech
// detector, and the overview run while the file decodes, and the programme is never held unless
// asked for. The overview is spread over the announced length; a file that turns out longer or
// shorter than it announced (or announced nothing) is decoded a second time for it.
#include <optional>
#include <string>

#include "audio/AudioFileReader.h"
#include "audio/ChannelLayout.h"
#include "measurement/Diagnostics.h"
#include "measurement/LoudnessEngine.h"
#include "measurement/ProgrammeDetail.h"

namespace velmora {

// Why a dialogue-gated measurement has no value while the programme has one.
inline constexpr const char* noDialogueText = "Aucun dialogue détecté";

struct AnalysisSettings {
    ChannelLayout layout = ChannelLayout::autoDetect;
    ChannelOrder order = ChannelOrder::smpte;
    bool dialogueGating = false;  // the effective gating mode is `dialog`
    bool keepAudio = false;       // hand the decoded channels back
    bool channelEnergies = false;  // hand back every channel's energies (5.1 files always measure them)
    bool overview = false;         // the waveform peaks and the display spectrum
};

struct FileAnalysis {
    PlanarAudio audio;  // empty unless asked for, but for the speakers the file declares
    int channelCount = 0;
    double sampleRate = 0.0;
    std::size_t frameCount = 0;
    bool isVideo = false;
    bool truncated = false;  // the file was cut short: measured up to the cut
    std::vector<double> weights;
    LoudnessResult result;
    std::optional<InversionWarning> inversion;  // only 6-channel files are tested
    std::vector<ChannelEnergy> energies;         // when asked for, or for a 6-channel file
    // Short-term loudness every curveStep seconds (see LoudnessEngine::shortTermCurve).
    std::vector<double> shortTermCurve;
    double curveStep = 1.0;
    // When asked for: 1024 waveform peaks and 256 spectrum bands (see Diagnostics.h).
    std::vector<float> waveformPeaks, spectrumBins;
    ProgrammeDetail detail;  // loudness every 100 ms, overs, clipping, per-channel figures
    std::vector<std::uint64_t> declaredPositions;  // as the file declares them, for channel labels

    double durationSeconds() const { return sampleRate > 0 ? double(frameCount) / sampleRate : 0.0; }
    // "4:07 · stéréo · 48.0 kHz", with "vidéo · " in front for a video and " · tronqué à 4:07"
    // after a file cut short.
    std::string infoLine() const;
    // Why the integrated loudness could not be measured; nothing when it could.
    std::optional<std::string> unmeasurableReason() const;
};

// "3:12", whole seconds, as the info line and the reports write a duration.
std::string minutesAndSeconds(double durationSeconds);
// "tronqué à 3:12": what is said of a file cut short, measured up to its cut.
std::string truncatedText(double durationSeconds);

// About six hundred points whatever the length: enough for a page-wide curve.
double curveStepFor(double durationSeconds);

Expected<FileAnalysis> analyseFile(const std::string& path, const AnalysisSettings& settings,
                                   const ProgressFn& progress = {});

}  // namespace velmora
