#include "model/MasterTask.h"

#include <QDir>
#include <QFile>
#include <QUuid>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <new>

#include "audio/AudioFileReader.h"
#include "norms/Presets.h"
#include "output/VideoRemux.h"
#include "reports/PDFReport.h"
#include "reports/ReportFile.h"
#include "reports/TextReport.h"

namespace velmora {

void ReportWriter::start(MasterTask task, MasterOutcome outcome) {
    finish();
    running_ = std::async(std::launch::async, [task = std::move(task), outcome = std::move(outcome)] {
        writeReports(task, outcome);
    });
}

void ReportWriter::finish() {
    if (running_.valid()) running_.get();
}

namespace {

ReportInputs reportInputs(const MasterTask& task, const DeliveryReport& d, const std::string& masterPath) {
    ReportInputs in;
    in.sourceName = task.sourceName.toStdString();
    in.exportedName = std::filesystem::path(masterPath).filename().string();
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
    in.album = task.album;
    return in;
}

}  // namespace

void writeReports(const MasterTask& task, const MasterOutcome& outcome) {
    if (!outcome.reportInputs) return;
    // A report that cannot be written costs nothing but itself: the master is already safe.
    try {
        if (task.textReport) (void)writeReport(outcome.writtenPath, "txt", makeTextReport(*outcome.reportInputs));
        if (task.pdfReport)
            (void)writeReport(outcome.writtenPath, "pdf", makePDFReport(*outcome.reportInputs, task.language));
    } catch (const std::bad_alloc&) {
    }
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
    if (task.isVideo) {
        // The sound goes under the picture afterwards; WAV keeps it exactly as written.
        soundPath = QDir(QDir::tempPath())
                        .filePath("velmora_" + QUuid::createUuid().toString(QUuid::WithoutBraces) + ".wav")
                        .toStdString();
        request.write.format = FileFormat::wav;
    }
    request.write.destination = soundPath;

    const auto source =
        programmeFor(task.sourcePath, isVideoPath(task.sourcePath), task.channelCount, task.frames, task.sampleRate);
    auto delivered = deliverMaster(*source, task.weights, request, progress);
    if (!delivered) {
        outcome.error = QString::fromStdString(delivered.error().message());
        return outcome;
    }
    if (task.isVideo) {
        auto failure = remuxVideoMaster(task.sourcePath, soundPath, task.destination);
        QFile::remove(QString::fromStdString(soundPath));
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
