#pragma once
// Everything a report says about one master, gathered by the job that wrote it.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mastering/MasterParams.h"
#include "measurement/EventDetector.h"
#include "measurement/LoudnessEngine.h"

namespace velmora {

enum class ReportLanguage { fr, en };

// The raw values are the texts shown and stored: "Français", "English".
std::string_view rawValue(ReportLanguage language);
std::optional<ReportLanguage> reportLanguageFromRaw(std::string_view raw);

struct ReportInputs {
    std::string sourceName;    // the source's display name
    std::string exportedName;  // last path component of the written master
    int channelCount = 0;
    double sampleRate = 0;  // of the master, Hz
    int bitDepth = 24;      // 16, 24 or 32
    bool isFloat = false;
    int presetIndex = 0;  // the norm the master was made for
    double target = -23.0;
    double ceiling = -1.0;  // dBTP
    double gainDB = 0.0;    // target − before.integratedLUFS
    LoudnessResult before, after;
    MasterParams params;
    double maxGR = 0.0;            // bus compressor's largest reduction, dB
    double durationSeconds = 0.0;  // of the master; 0 when it has no frames
    std::string date;              // "dd/MM/yyyy HH:mm" local time; empty means now
    // The integrated loudness written instead of the target, when the ceiling put the target
    // out of reach (DeliveryReport::targetMissedLUFS); such a master is never called conform.
    std::optional<double> targetMissedLUFS;
    // The source was cut short (a recording that stopped): measured and mastered up to its cut,
    // which is the master's end.
    bool sourceTruncated = false;
    // A track of an album (batch --album): the album's loudness as measured, the one gain every
    // track got, and how far it was lowered so no track needed more than 12 dB of limiting.
    struct Album {
        double loudnessLUFS = 0.0, gainDB = 0.0, loweredDB = 0.0;
    };
    std::optional<Album> album;

    // Short-term loudness (3 s window) of the source and of the master, one value every
    // curveStepSeconds from the start; -inf where nothing can be measured. Empty: no graph.
    std::vector<double> beforeShortTerm, afterShortTerm;
    double curveStepSeconds = 1.0;

    // Where the source went over the norm and clipped, by start time; absent when not known.
    std::optional<std::vector<LoudnessEvent>> sourceEvents;
    std::vector<std::string> channelLabels;  // names the events' channels
};

}  // namespace velmora
