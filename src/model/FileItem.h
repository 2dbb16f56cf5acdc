#pragma once
// One file of the work queue, as the table shows it and the jobs use it.
#include <QString>
#include <QUuid>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "audio/SourceStamp.h"
#include "measurement/Diagnostics.h"
#include "measurement/LoudnessEngine.h"
#include "measurement/ProgrammeDetail.h"
#include "norms/Diagnosis.h"
#include "reports/ReportInputs.h"

namespace velmora {

// sRGB components and opacity, 0 … 1; the model has no GUI dependency.
struct StatusColor {
    double red = 1.0, green = 1.0, blue = 1.0, alpha = 1.0;
    bool operator==(const StatusColor&) const = default;
};

// Where an item stands in the queue. Logic compares these; the words and colours the interface
// shows are computed from them, below, and nowhere else.
enum class ItemStatus { pending, analysing, ready, unmeasurable, readFailed, mastering, mastered, failed };

// "En attente", "Prêt", "Masterisé ✓" … or their English words.
QString statusText(ItemStatus status, ReportLanguage language = ReportLanguage::fr);
StatusColor statusColor(ItemStatus status);

struct FileItem {
    QUuid id = QUuid::createUuid();
    std::string url;  // local path
    QString name;
    QString info = QStringLiteral("En attente d'analyse…");
    bool isVideo = false;
    ItemStatus status = ItemStatus::pending;
    std::optional<LoudnessResult> measured;
    std::optional<LoudnessResult> originalMeasure;
    // No samples: whatever needs them (a master, listening) reads the file again, so a queue
    // costs its measurements, not its audio.
    std::size_t channelTotal = 0;  // as decoded
    std::size_t frameTotal = 0;
    double sampleRate = 0;
    double maxGR = 0;
    std::vector<ChannelEnergy> channelEnergies;
    std::optional<InversionWarning> inversionWarning;
    double protectionAppliedDB = 0;
    std::optional<double> targetMissedLUFS;  // of the last master made from it, see DeliveryReport
    QString reportProblem;  // a report of its last master that could not be written, in a few words
    std::vector<NormCheck> multiNormDiagnosis;
    std::vector<float> waveformPeaks;
    std::vector<float> spectrumBins;
    std::vector<double> shortTermCurve;  // for the reports' graph, one value every curveStep seconds
    double curveStep = 1.0;
    // The source's loudness every 100 ms, its overs and clipping, its channels' own figures;
    // shared with the jobs and reports that read it.
    std::shared_ptr<const ProgrammeDetail> detail;
    std::vector<std::uint64_t> declaredPositions;  // speaker bits the file declared, for the weights
    std::vector<double> measuredWeights;  // the channel weights originalMeasure was made with
    std::optional<SourceStamp> sourceStamp;  // the file as it was when analysed
    bool truncated = false;                  // cut short: measured up to the cut

    bool hasAudio() const { return channelTotal > 0; }
    std::size_t channelCount() const { return channelTotal; }

    // The measurement of the untouched source: the first one when the item has been processed.
    const std::optional<LoudnessResult>& sourceMeasure() const { return originalMeasure ? originalMeasure : measured; }
};

}  // namespace velmora
