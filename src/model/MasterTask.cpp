#include "model/MasterTask.h"

#include <QDir>
#include <QFile>
#include <QUuid>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <new>
#include <sys/statvfs.h>

#include "audio/AudioFileReader.h"
#include "measurement/EventDetector.h"
#include "norms/Presets.h"
#include "model/MasterNames.h"
#include "output/PendingFile.h"
#include "output/VideoRemux.h"
#include "reports/PDFReport.h"
#include "reports/ReportFile.h"
#include "reports/TextReport.h"

namespace velmora {

void ReportWriter::start(MasterTask task, MasterOutcome outcome, std::function<void(QString)> done) {
    finish();
    running_ = std::async(std::launch::async,
                          [task = std::move(task), outcome = std::move(outcome), done = std::move(done)] {
                              done(writeReports(task, outcome));
                          });
}

void ReportWriter::finish() {
    if (running_.valid()) running_.get();
}

namespace {

ReportInputs reportInputs(const MasterTask& task, const DeliveryReport& d, const std::string& masterPath) {
    ReportInputs in;
    in.sourceName = task.sourceName.toStdString();
    in.exportedName = displayName(std::filesystem::path(masterPath).filename().native()).toStdString();
    in.channelCount = int(d.written.channels);
    in.sampleRate = d.written.sampleRate;
    in.bitDepth = bits(task.depth);
    in.isFloat = isFloat(task.depth);
    in.presetIndex = task.presetIndex;
    in.target = task.target;
    in.ceiling = task.ceiling;
    in.gainDB = task.target - task.before.integratedLUFS;
    in.before = task.before;
    in.after = d.after;
    in.params = task.params;
    in.maxGR = d.maxGR;
    in.durationSeconds = d.written.sampleRate > 0 ? double(d.written.frames) / d.written.sampleRate : 0.0;
    in.curveStepSeconds = task.curveStep;
    in.beforeShortTerm = task.beforeCurve;
    in.afterShortTerm = d.afterShortTerm;
    in.targetMissedLUFS = d.targetMissedLUFS;
    if (task.sourceDetail && !task.sourceDetail->empty()) {
        // Against the ceiling the master was made for, with the norm's short-term limit.
        in.sourceEvents = detectEvents(*task.sourceDetail, {task.ceiling, presetAt(task.presetIndex).msLimitLUFS, {}}).events;
        in.channelLabels = task.channelLabels;
    }
    in.sourceTruncated = task.truncated;
    in.album = task.album;
    return in;
}

}  // namespace

namespace {

// Why a report is not on disk, in a few words: the disk's fault only when the disk is full.
QString reportProblem(const LoudnessError& error, const std::string& masterPath, std::size_t bytes) {
    switch (error.code) {
    case LoudnessError::Code::diskAccess: return QStringLiteral("accès au dossier refusé");
    case LoudnessError::Code::nameTooLong: return QStringLiteral("nom trop long");
    case LoudnessError::Code::tooLarge: return QStringLiteral("mémoire insuffisante");
    default: break;
    }
    struct statvfs disk {};
    const std::string folder = std::filesystem::path(masterPath).parent_path().native();
    if (::statvfs(folder.empty() ? "." : folder.c_str(), &disk) == 0 &&
        double(disk.f_bavail) * double(disk.f_frsize) < double(bytes) + 65536.0)
        return QStringLiteral("disque plein");
    return QStringLiteral("erreur d'écriture");
}

}  // namespace

QString writeReports(const MasterTask& task, const MasterOutcome& outcome) {
    if (!outcome.reportInputs) return {};
    // A report that cannot be written costs nothing but itself: the master is already safe. It
    // is said, never skipped in silence.
    QStringList problems;
    auto write = [&](const char* kind, const char* extension, auto make) {
        std::string bytes;
        std::optional<LoudnessError> error;
        try {
            bytes = make();
            error = writeReport(outcome.writtenPath, extension, bytes);
        } catch (const std::bad_alloc&) {
            error = LoudnessError{LoudnessError::Code::tooLarge};
        }
        if (error)
            problems << QStringLiteral("rapport %1 non écrit : %2")
                            .arg(QLatin1String(kind), reportProblem(*error, outcome.writtenPath, bytes.size()));
    };
    if (task.textReport) write("texte", "txt", [&] { return makeTextReport(*outcome.reportInputs); });
    if (task.pdfReport)
        write("PDF", "pdf", [&] { return makePDFReport(*outcome.reportInputs, task.language); });
    return problems.join(QStringLiteral(" · "));
}

std::unique_ptr<Programme> programmeFor(const std::string& path, bool isVideo, std::size_t channels, std::size_t frames,
                                        double sampleRate) {
    return std::make_unique<FileProgramme>(path, isVideo, channels, frames, sampleRate);
}

MasterOutcome makeMaster(const MasterTask& task, const ProgressFn& progress) {
    MasterOutcome outcome;
    DeliveryRequest request;
    request.targetLUFS = task.target;
    request.ceilingDB = task.ceiling;
    request.params = task.params;
    request.write.format = task.format;
    request.write.depth = task.depth;
    request.write.outputRate = task.outputRate;
    request.write.layout = task.layout;
    request.write.sourcePath = task.sourcePath;
    request.write.processing = "norm " + presetTag(task.presetIndex);
    if (task.pdfReport) request.shortTermCurveStep = task.curveStep;
    request.sourceIntegratedLUFS = task.sourceIntegratedLUFS;
    request.sourceTruePeakDB = task.sourceTruePeakDB;

    std::string soundPath = task.destination;
    // The sound of a video: a file without a name, gone with the process however it ends.
    std::optional<ScratchFile> scratch =
        task.isVideo ? ScratchFile::create(QFile::encodeName(QDir::tempPath()).toStdString()) : std::nullopt;
    bool namedSound = false;
    if (task.isVideo) {
        // The sound goes under the picture afterwards; WAV keeps it exactly as written.
        request.write.format = FileFormat::wav;
        if (scratch) {
            soundPath = scratch->path();
            request.write.scratchFd = scratch->fd();
        } else {
            soundPath = QFile::encodeName(QDir(QDir::tempPath()).filePath(
                                              "velmora_" + QUuid::createUuid().toString(QUuid::WithoutBraces) + ".wav"))
                            .toStdString();
            namedSound = true;
        }
    }
    request.write.destination = soundPath;

    // The master, its report and its name must all describe the audio that was analysed.
    if (changedSince(task.sourceStamp, task.sourcePath)) {
        outcome.error = QString::fromStdString(LoudnessError{LoudnessError::Code::sourceChanged}.message());
        return outcome;
    }
    const auto source =
        programmeFor(task.sourcePath, isVideoPath(task.sourcePath), task.channelCount, task.frames, task.sampleRate);
    auto delivered = deliverMaster(*source, task.weights, request, progress);
    if (!delivered) {
        outcome.error = QString::fromStdString(delivered.error().message());
        outcome.interrupted = delivered.error().code == LoudnessError::Code::interrupted;
        return outcome;
    }
    if (task.isVideo) {
        auto failure = remuxVideoMaster(task.sourcePath, soundPath, task.destination);
        std::error_code ignored;
        if (namedSound) std::filesystem::remove(soundPath, ignored);
        scratch.reset();
        if (failure) {
            outcome.error = QString::fromStdString(failure->message);
            return outcome;
        }
    }
    outcome.after = delivered->after;
    outcome.maxGR = delivered->maxGR;
    outcome.protectionAppliedDB = delivered->protectionAppliedDB;
    outcome.writtenPath = task.destination;
    outcome.targetMissedLUFS = delivered->targetMissedLUFS;
    if (task.textReport || task.pdfReport) outcome.reportInputs = reportInputs(task, *delivered, task.destination);
    return outcome;
}

}  // namespace velmora
