// The save, batch, multi-master and A/B jobs. Each takes a copy of every setting it needs when
// it starts, works on the job thread, and posts each change of the model to the main thread.
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <cstdio>

#include "audio/ChannelLabels.h"
#include "audio/NumberFormat.h"
#include "measurement/StreamingMeter.h"
#include "model/AlbumJob.h"
#include "model/MasterNames.h"
#include "model/MasterTask.h"
#include "model/Model.h"
#include "norms/Presets.h"
#include "output/ABExcerpts.h"
#include "output/Interruption.h"
#include "output/SignalGenerators.h"

namespace velmora {

namespace {

QString oneDecimal(double v) { return QString::fromStdString(formatOneDecimal(v)); }

std::optional<SpeakerLayout> layoutFor(const FileItem& item, ChannelOrder order) {
    return masterLayout(item.channelCount(), item.declaredPositions, order);
}

QString targetMissedStatus(double lufs) { return QString::fromStdString(targetMissedText(lufs)); }

QString multiMasterStep(int current, int total, const QString& label) {
    return QStringLiteral("Multi-Master %1/%2 · %3").arg(current).arg(total).arg(label);
}

QString counted(int n, const char* singular, const char* plural) {
    return QStringLiteral("%1 %2").arg(n).arg(QString::fromUtf8(n > 1 ? plural : singular));
}

// "✓" only when everything the job was asked for is on disk; otherwise what succeeded and what
// did not, by count. `left`: not started because a signal stopped the job.
QString jobSummary(const QString& job, const QString& succeeded, int failures, int reportFailures, int left) {
    QString text = job + (left > 0 ? QStringLiteral(" interrompu : ") : QStringLiteral(" terminé : ")) + succeeded;
    if (failures > 0) text += QStringLiteral(", ") + counted(failures, "échec", "échecs");
    if (reportFailures > 0) text += QStringLiteral(", ") + counted(reportFailures, "rapport non écrit", "rapports non écrits");
    if (left > 0) text += QStringLiteral(", ") + counted(left, "non traité", "non traités");
    return text;
}

QString batchSummary(int done, int failures, int reportFailures, int left) {
    if (failures == 0 && reportFailures == 0 && left == 0)
        return QStringLiteral("Traitement par lots terminé ✓ (%1)").arg(counted(done, "fichier", "fichiers"));
    return jobSummary(QStringLiteral("Traitement par lots"), counted(done - failures, "fichier", "fichiers"), failures,
                      reportFailures, left);
}

QString multiMasterSummary(int generated, int failures, int reportFailures, int left) {
    if (failures == 0 && reportFailures == 0 && left == 0 && generated > 0)
        return QStringLiteral("Multi-Master terminé ✓ (%1 masters générés)").arg(generated);
    return jobSummary(QStringLiteral("Multi-Master"), counted(generated, "master généré", "masters générés"), failures,
                      reportFailures, left);
}

// Names are the file system's bytes, whatever their encoding: a Latin-1 name is mastered under
// its own name.
std::string fileSystemPath(const QString& path) { return QFile::encodeName(path).toStdString(); }
std::string sourceFileName(const FileItem& item) { return std::filesystem::path(item.url).filename().native(); }

bool measuredAndFinite(const FileItem* item) {
    return item && item->hasAudio() && item->measured && std::isfinite(item->measured->integratedLUFS);
}

// Hands a master to `finished` once its reports are written, with what kept one from being
// written, counted in `reportFailures`. A master without reports (a failed one included) is
// handed over after the reports started before it, so the items are said in their order.
void finishAfterReports(ReportWriter& reports, const MasterTask& task, MasterOutcome outcome,
                        const std::shared_ptr<std::atomic<int>>& reportFailures,
                        const std::function<void(MasterOutcome, QString)>& finished) {
    if (outcome.reportInputs) {
        reports.start(task, outcome, [finished, outcome, reportFailures](QString problem) {
            if (!problem.isEmpty()) ++*reportFailures;
            finished(outcome, problem);
        });
    } else {
        reports.finish();
        finished(std::move(outcome), {});
    }
}

}  // namespace

MasterTask Model::taskFor(const FileItem& item) const {
    MasterTask t;
    t.channelCount = item.channelCount();
    t.frames = item.frameTotal;
    t.sampleRate = item.sampleRate;
    t.weights = resolveChannelWeights(int(item.channelCount()), layout_, channelOrder_, item.declaredPositions);
    t.sourcePath = item.url;
    t.sourceStamp = item.sourceStamp;
    t.sourceName = item.name;
    t.isVideo = item.isVideo;
    t.truncated = item.truncated;
    t.before = item.sourceMeasure().value_or(LoudnessResult{});
    // The analysis measured the source with the standard gating: when the weights are still the
    // same, its loudness is the one the conformity gain needs.
    if (item.originalMeasure && !item.originalMeasure->programmeLUFS && item.measuredWeights == t.weights)
        t.sourceIntegratedLUFS = item.originalMeasure->integratedLUFS;
    if (item.originalMeasure) t.sourceTruePeakDB = item.originalMeasure->truePeakDB;
    t.beforeCurve = item.shortTermCurve;
    t.curveStep = item.curveStep;
    t.sourceDetail = item.detail;
    t.channelLabels = channelLabels(int(item.channelCount()), layout_, channelOrder_, item.declaredPositions);
    t.depth = bitDepth_;
    t.format = fileFormat_;
    t.outputRate = outputRate_;
    t.layout = layoutFor(item, channelOrder_);
    t.textReport = exportLog_;
    t.pdfReport = exportPDF_;
    t.language = reportLanguage_;
    return t;
}

QString Model::proposedSaveName() const {
    const FileItem* item = selectedItem();
    if (!item) return {};
    return QString::fromStdString(
        masterFileName(item->name.toStdString(), mode_, target_, std::nullopt, extension(fileFormat_)));
}

// --- Save ---------------------------------------------------------------------------------------

bool Model::canSaveMaster() const { return !busy_ && measuredAndFinite(selectedItem()); }

void Model::saveMaster() {
    const FileItem* item = selectedItem();
    if (!measuredAndFinite(item)) {
        setGlobalStatus(QStringLiteral("Analysez d'abord un fichier avant d'enregistrer."));
        return;
    }
    if (busy_) return;
    const auto path = choosers_ ? choosers_->chooseSaveFile(QStringLiteral("Enregistrer le fichier"),
                                                             QStringLiteral("Enregistrer"), proposedSaveName())
                                : std::nullopt;
    if (!path || path->isEmpty() || busy_) return;

    setBusy(true);
    setGlobalStatus(QStringLiteral("Enregistrement…"));
    setBatchTotal(1);
    setBatchDone(0);
    setBatchCurrent(0);

    DeliveryRequest request;
    request.targetLUFS = target_;
    request.ceilingDB = ceiling_;
    request.params = mode_ == ProcessMode::master ? mp_ : MasterParams{};
    request.write.destination = fileSystemPath(*path);  // its extension decides the container
    request.write.depth = bitDepth_;
    request.write.outputRate = outputRate_;
    request.write.layout = layoutFor(*item, channelOrder_);
    request.write.sourcePath = item->url;
    request.write.processing = "norm " + presetTag(presetIndex_);
    const auto weights = resolveChannelWeights(int(item->channelCount()), layout_, channelOrder_, item->declaredPositions);
    std::shared_ptr<const Programme> source =
        programmeFor(item->url, item->isVideo, item->channelCount(), item->frameTotal, item->sampleRate);

    startJob([this, request, source, weights, stamp = item->sourceStamp] {
        auto delivered =
            changedSince(stamp, request.write.sourcePath)
                ? Expected<DeliveryReport>(LoudnessError{LoudnessError::Code::sourceChanged})
                : deliverMaster(*source, weights, request, [this](double f) { postProgress(f, &Model::setBatchCurrent); });
        QString status;
        if (delivered) {
            status = QStringLiteral("Enregistré : %1 · %2 LUFS")
                         .arg(QFileInfo(QString::fromStdString(delivered->written.path)).fileName(),
                              oneDecimal(delivered->after.integratedLUFS));
            if (delivered->targetMissedLUFS) status += " · " + targetMissedStatus(*delivered->targetMissedLUFS);
        } else
            status = QStringLiteral("Échec enregistrement : ") + QString::fromStdString(delivered.error().message());
        post([this, status] {
            setGlobalStatus(status);
            setBatchTotal(0);
            setBatchDone(0);
            setBatchCurrent(0);
            setBusy(false);
            analyzeNext();
        });
    });
}

// --- Batch --------------------------------------------------------------------------------------

bool Model::canExportBatch() const { return !busy_ && !queue_.empty(); }

void Model::exportBatch() {
    if (queue_.empty() || busy_) return;
    const auto folder = choosers_ ? choosers_->chooseFolder(QStringLiteral("Choisir le dossier des exports"),
                                                             QStringLiteral("Exporter ici"))
                                  : std::nullopt;
    if (!folder || folder->isEmpty() || busy_) return;
    setBusy(true);
    setGlobalStatus(QStringLiteral("Mastering en cours…"));

    std::vector<std::pair<QUuid, MasterTask>> work;
    const MasterParams params = mode_ == ProcessMode::master ? mp_ : MasterParams{};
    for (const auto& item : queue_) {
        if ((item.status != ItemStatus::ready && item.status != ItemStatus::mastered) || !item.hasAudio()) continue;
        MasterTask t = taskFor(item);
        const LoudnessResult& before = t.before;
        t.presetIndex = presetIndex_;
        t.target = target_;
        t.ceiling = ceiling_;
        t.params = params;
        const std::string name = masterFileName(sourceFileName(item), mode_, target_, before.loudnessRange,
                                                item.isVideo ? std::string_view("mov") : extension(fileFormat_));
        t.destination = (std::filesystem::path(fileSystemPath(*folder)) / name).native();
        work.emplace_back(item.id, std::move(t));
    }
    batchFailures_.clear();
    setBatchTotal(int(work.size()));
    setBatchDone(0);

    lastAlbum_.reset();
    startJob([this, album = album_, work = std::move(work)]() mutable {
        int failures = 0;
        auto reportFailures = std::make_shared<std::atomic<int>>(0);
        ReportWriter reports;
        std::optional<AlbumPlan> albumPlan;
        if (album && !work.empty()) {
            post([this] { setProcessingName(QStringLiteral("Album")); });
            if (auto failure = planAlbumBatch(work, albumPlan, [this](double f) { postProgress(f, &Model::setBatchCurrent); })) {
                post([this, message = *failure, total = int(work.size())] {
                    batchFailures_.push_back({QStringLiteral("Album"), message});
                    setGlobalStatus(QStringLiteral("Échec album : ") + message);
                    setBatchDone(total);
                    setProcessingName({});
                    setBusy(false);
                    analyzeNext();
                });
                return;
            }
            post([this, albumPlan] { lastAlbum_ = albumPlan; });
        }
        for (const auto& [id, task] : work) {
            if (interruptRequested()) break;
            post([this, id = id, name = task.sourceName] {
                updateItem(id, [](FileItem& i) {
                    i.status = ItemStatus::mastering;
                });
                setProcessingName(name);
                setBatchCurrent(0);
            });
            auto outcome = makeMaster(task, [this](double f) { postProgress(f, &Model::setBatchCurrent); });
            // Stopped by a signal: the file was not made, and no other will be.
            if (outcome.interrupted) {
                post([this, id = id] { updateItem(id, [](FileItem& i) { i.status = ItemStatus::ready; }); });
                break;
            }
            if (outcome.error) ++failures;
            auto finished = [this, id = id, name = task.sourceName](MasterOutcome outcome, QString reportProblem) {
                post([this, id, name, outcome = std::move(outcome), reportProblem] {
                    if (outcome.error) batchFailures_.push_back({name, *outcome.error});
                    else if (!reportProblem.isEmpty()) batchFailures_.push_back({name, reportProblem, true});
                    updateItem(id, [&](FileItem& i) {
                        if (outcome.error) {
                            i.status = ItemStatus::failed;
                        } else {
                            i.status = ItemStatus::mastered;
                            i.measured = outcome.after;
                            i.maxGR = outcome.maxGR;
                            i.protectionAppliedDB = outcome.protectionAppliedDB;
                            i.targetMissedLUFS = outcome.targetMissedLUFS;
                            i.reportProblem = reportProblem;
                        }
                    });
                    setBatchDone(batchDone_ + 1);
                });
            };
            // An item is done once its reports are: its line says whether they were written.
            finishAfterReports(reports, task, std::move(outcome), reportFailures, finished);
        }
        reports.finish();
        post([this, failures, reportFailures, total = int(work.size()), albumPlan] {
            const QString summary = batchSummary(batchDone_, failures, *reportFailures, total - batchDone_);
            lastAlbum_ = albumPlan;
            setGlobalStatus(albumPlan ? summary + albumSummary(*albumPlan) : summary);
            setProcessingName({});
            setBatchCurrent(0);
            setBusy(false);
            analyzeNext();
        });
    });
}

// --- Multi-master -------------------------------------------------------------------------------

bool Model::canStartMultiMaster() const {
    if (busy_ || !measuredAndFinite(selectedItem())) return false;
    return std::any_of(multiMasterPresetIndices_.begin(), multiMasterPresetIndices_.end(),
                       [](int i) { return i >= 0 && i < int(presets().size()); });
}

void Model::startMultiMaster() {
    const FileItem* item = selectedItem();
    if (!measuredAndFinite(item)) {
        setGlobalStatus(QStringLiteral("Sélectionnez d'abord un fichier analysé."));
        return;
    }
    std::vector<int> norms;
    for (int i : multiMasterPresetIndices_)
        if (i >= 0 && i < int(presets().size())) norms.push_back(i);
    if (norms.empty()) {
        setGlobalStatus(QStringLiteral("Aucune norme cochée pour le Multi-Master."));
        return;
    }
    if (busy_) return;
    const auto folder = choosers_ ? choosers_->chooseFolder(QStringLiteral("Choisir le dossier des masters"),
                                                             QStringLiteral("Exporter ici"))
                                  : std::nullopt;
    if (!folder || folder->isEmpty()) {
        setGlobalStatus(QStringLiteral("Multi-Master annulé."));
        return;
    }
    if (busy_) return;
    setBusy(true);
    setMultiMasterTotal(int(norms.size()));
    setMultiMasterCurrent(0);

    MasterTask base = taskFor(*item);
    base.isVideo = false;  // one master per norm, each a plain audio file
    base.params = mp_;
    const std::string into = fileSystemPath(*folder);
    const std::string sourceName = sourceFileName(*item);
    const FileFormat format = fileFormat_;
    const QUuid id = item->id;
    batchFailures_.clear();

    startJob([this, base, norms, into, sourceName, format, id] {
        int generated = 0, failures = 0;
        auto reportFailures = std::make_shared<std::atomic<int>>(0);
        ReportWriter reports;
        for (int index : norms) {
            if (interruptRequested()) break;
            const Preset& p = presets()[std::size_t(index)];
            post([this, label = QString::fromStdString(p.label)] {
                setMultiMasterCurrent(multiMasterCurrent_ + 1);
                setMultiMasterCurrentLabel(label);
                setGlobalStatus(multiMasterStep(multiMasterCurrent_, multiMasterTotal_, label));
            });
            MasterTask task = base;
            task.presetIndex = index;
            task.target = p.lufs;
            task.ceiling = p.ceiling;
            task.destination =
                (std::filesystem::path(into) / multiMasterFileName(sourceName, index, extension(format))).native();
            auto outcome = makeMaster(task, [this](double f) { postProgress(f, &Model::setBatchCurrent); });
            if (outcome.interrupted) break;
            const QString label = QString::fromStdString(p.label);
            if (outcome.error) {
                ++failures;
                reports.finish();
                post([this, label, message = *outcome.error] { batchFailures_.push_back({label, message}); });
                continue;
            }
            ++generated;
            auto finished = [this, id, label](MasterOutcome outcome, QString reportProblem) {
                post([this, id, outcome = std::move(outcome), label, reportProblem] {
                    if (!reportProblem.isEmpty()) batchFailures_.push_back({label, reportProblem, true});
                    updateItem(id, [&](FileItem& i) {
                        i.maxGR = outcome.maxGR;
                        i.protectionAppliedDB = outcome.protectionAppliedDB;
                    });
                    // The step line is where this norm's master is reported, to the window and to
                    // the command line alike.
                    QString line = multiMasterStep(multiMasterCurrent_, multiMasterTotal_, label);
                    if (outcome.targetMissedLUFS) line += " · " + targetMissedStatus(*outcome.targetMissedLUFS);
                    if (!reportProblem.isEmpty()) line += " · " + reportProblem;
                    if (outcome.targetMissedLUFS || !reportProblem.isEmpty()) setGlobalStatus(line);
                });
            };
            finishAfterReports(reports, task, std::move(outcome), reportFailures, finished);
        }
        reports.finish();
        post([this, generated, failures, reportFailures, planned = int(norms.size())] {
            setGlobalStatus(multiMasterSummary(generated, failures, *reportFailures, planned - generated - failures));
            setBusy(false);
            analyzeNext();
        });
    });
}

// --- A/B excerpts ---------------------------------------------------------------------------------

namespace {

// The integrated loudness of an excerpt as written, read back from its file: what a player will
// play, rounding of the samples included. Nothing when it cannot be read or is too quiet.
std::optional<double> writtenLoudness(const std::string& path, std::span<const double> weights) {
    LoudnessAnalyzer analyzer({}, false);
    const auto read = readAudioFile(path, &analyzer);
    if (!read || read->channelCount() != weights.size()) return std::nullopt;
    const double loudness = analyzer.result(weights).integratedLUFS;
    return std::isfinite(loudness) ? std::optional(loudness) : std::nullopt;
}

}  // namespace

void Model::generateAB() {
    const FileItem* item = selectedItem();
    if (!measuredAndFinite(item)) {
        setGlobalStatus(QStringLiteral("Sélectionnez d'abord un fichier analysé."));
        return;
    }
    if (busy_ || isPreviewing_) return;
    setIsPreviewing(true);
    setBusy(true);
    setGlobalStatus(QStringLiteral("Génération des extraits A/B…"));
    ABRequest request;
    request.sourcePath = item->url;
    request.params = mp_;
    request.targetLUFS = target_;
    request.ceilingDB = ceiling_;
    request.depth = bitDepth_;
    request.layout = layoutFor(*item, channelOrder_);
    std::shared_ptr<const Programme> source =
        programmeFor(item->url, item->isVideo, item->channelCount(), item->frameTotal, item->sampleRate);
    const auto weights = resolveChannelWeights(int(item->channelCount()), layout_, channelOrder_, item->declaredPositions);
    startJob([this, request, source, weights] {
        auto files = generateABExcerpts(*source, weights, request);
        // The two are not level-matched on purpose (the after one is brought to the target): the
        // listener is told how far apart they are, as measured on the files themselves.
        std::optional<double> apart;
        if (files) {
            const auto before = writtenLoudness(files->before, weights), after = writtenLoudness(files->after, weights);
            if (before && after) apart = std::fabs(*after - *before);
        }
        post([this, ok = bool(files), apart, paths = files ? QStringList{QString::fromStdString(files->before),
                                                                          QString::fromStdString(files->after)}
                                                           : QStringList{}] {
            setIsPreviewing(false);
            setBusy(false);
            if (ok) {
                const QString gap = apart ? QStringLiteral("écart de sonie : ") + oneDecimal(*apart) + QStringLiteral(" LU")
                                          : QStringLiteral("écart de sonie non mesurable");
                setGlobalStatus(QStringLiteral("Extraits A/B créés ✓ — ") + gap +
                                QStringLiteral(" (ouverts dans le gestionnaire de fichiers)"));
                if (choosers_) choosers_->reveal(paths);
            } else {
                setGlobalStatus(QStringLiteral("Échec de la génération des extraits."));
            }
            analyzeNext();
        });
    });
}

// --- Calibration noise ------------------------------------------------------------------------------

void Model::saveRLLCalibration() {
    if (busy_) return;
    const auto path = choosers_ ? choosers_->chooseSaveFile(QStringLiteral("Enregistrer le signal RLL de calibration"),
                                                             QStringLiteral("Enregistrer"),
                                                             QString::fromUtf8(rllCalibrationFileName.data(),
                                                                               qsizetype(rllCalibrationFileName.size())))
                                : std::nullopt;
    if (!path || path->isEmpty() || busy_) return;
    setBusy(true);
    startJob([this, destination = path->toStdString()] {
        const auto written = velmora::saveRLLCalibration(destination);
        post([this, ok = bool(written), name = QFileInfo(QString::fromStdString(destination)).fileName()] {
            // A failed write stays silent, as the calibration signal always has; a written file is worth a word.
            if (ok) setGlobalStatus(QStringLiteral("Bruit rose RLL enregistré : %1 ✓").arg(name));
            setBusy(false);
            analyzeNext();
        });
    });
}

}  // namespace velmora
