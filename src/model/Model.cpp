#include "model/Model.h"

#include <QDir>
#include <QFile>
#include <filesystem>
#include <QDirIterator>
#include <QFileInfo>
#include <QMetaObject>
#include <QThread>
#include <limits>

#include "audio/AudioFileReader.h"
#include "audio/LiveMonitor.h"
#include "mastering/OnlineMasteringStreamer.h"
#include "model/ABMatch.h"
#include "model/FilePlayback.h"
#include "model/GiveWay.h"
#include "model/MasterNames.h"
#include "measurement/FileAnalysis.h"
#include "measurement/ProgrammeMeasure.h"
#include "norms/Presets.h"
#include "output/BroadcastWave.h"
#include <unistd.h>

namespace velmora {

namespace {

// " · bext : -23.0 LUFS · LRA …": what a WAV file's own bext says of its loudness, shown beside
// the measurement so a mismatch is seen; empty for a file that says nothing.
std::string claimedLoudness(const std::string& path) {
    const auto claimed = claimedBextLoudness(path);
    return claimed ? " · " + *bextLoudnessText(*claimed) : std::string();
}

}  // namespace

namespace {
// Niceness of the job threads: 10 weighs a job's thread about a tenth of the main thread's when
// both want a core; alone on the machine a job runs as fast as ever.
}  // namespace

Model::Model(std::unique_ptr<QSettings> store, Choosers* choosers, QObject* parent)
    : QObject(parent), store_(std::move(store)), choosers_(choosers),
      progressInFlight_(std::make_shared<std::atomic<bool>>(false)),
      progressValue_(std::make_shared<std::atomic<double>>(0.0)) {
    if (store_) {
        loadUserPresets();
        loadSettings();
    }
    connect(&playbackTimer_, &QTimer::timeout, this, &Model::onPlaybackTick);
}

Model::~Model() { waitForJob(); }

std::unique_ptr<QSettings> Model::userStore() { return std::make_unique<QSettings>("Velmora", "Velmora"); }

const QStringList& Model::acceptedExtensions() {
    static const QStringList extensions = [] {
        QStringList list;
        for (std::string_view e : velmora::acceptedExtensions()) list << QString::fromLatin1(e.data(), qsizetype(e.size()));
        return list;
    }();
    return extensions;
}

// --- Jobs plumbing ------------------------------------------------------------------------

void Model::startJob(std::function<void()> work) {
    waitForJob();  // the last job has posted its end already; its thread is only returning
    job_ = std::thread([work = std::move(work)] {
        giveWayToTheInterface();
        work();
    });
}

void Model::waitForJob() {
    if (job_.joinable()) job_.join();
}

void Model::post(std::function<void()> change) {
    QMetaObject::invokeMethod(this, std::move(change), Qt::QueuedConnection);
}

void Model::postProgress(double fraction, void (Model::*setter)(double)) {
    // The newest value wins and the main thread has at most one update waiting: the worker may
    // report thousands of times a second.
    progressValue_->store(fraction);
    if (progressInFlight_->exchange(true)) return;
    post([this, inFlight = progressInFlight_, value = progressValue_, setter] {
        inFlight->store(false);
        (this->*setter)(value->load());
    });
}

FileItem* Model::findItem(const QUuid& id) {
    for (auto& i : queue_)
        if (i.id == id) return &i;
    return nullptr;
}

const FileItem* Model::item(const QUuid& id) const {
    for (const auto& i : queue_)
        if (i.id == id) return &i;
    return nullptr;
}

const FileItem* Model::selectedItem() const { return selectedID_ ? item(*selectedID_) : nullptr; }

void Model::updateItem(const QUuid& id, const std::function<void(FileItem&)>& change) {
    if (auto* i = findItem(id)) {
        change(*i);
        emit itemChanged(id);
        emit queueChanged();
    }
}

// --- Queue --------------------------------------------------------------------------------

namespace {

// Paths are the file system's bytes from here on: a name that is not UTF-8 (Latin-1 from an old
// disk) is found, read and written under its own name; only its display goes through Qt.
std::string bytesOf(const QString& path) { return QFile::encodeName(path).toStdString(); }

bool isFolder(const std::string& path) {
    std::error_code ec;
    return std::filesystem::is_directory(path, ec);
}

// Every accepted file under `folder`, at any depth, sorted so a folder always queues in the
// same order.
std::vector<std::string> acceptedFilesIn(const std::string& folder) {
    std::vector<std::string> found;
    std::error_code ec;
    const auto options = std::filesystem::directory_options::skip_permission_denied;
    for (auto it = std::filesystem::recursive_directory_iterator(folder, options, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
        std::error_code typeError;
        if (it->is_regular_file(typeError) && isAcceptedExtension(it->path().native())) found.push_back(it->path().native());
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::vector<std::string> bytesOf(const QStringList& paths) {
    std::vector<std::string> out;
    for (const auto& p : paths) out.push_back(bytesOf(p));
    return out;
}

}  // namespace

void Model::openFiles() {
    const QStringList chosen =
        choosers_ ? choosers_->chooseFilesOrFolders(QStringLiteral("Ouvrir des fichiers ou un dossier"), QStringLiteral("Ouvrir"))
                  : QStringList{};
    if (chosen.isEmpty()) return;
    addFilesOrFolders(chosen);
}

void Model::addFilesOrFolders(const QStringList& paths) { addPaths(bytesOf(paths)); }

void Model::addPaths(const std::vector<std::string>& paths) {
    std::vector<std::string> kept;
    for (const auto& path : paths) {
        if (isFolder(path)) {
            const auto inside = acceptedFilesIn(path);
            kept.insert(kept.end(), inside.begin(), inside.end());
        } else if (isAcceptedExtension(path)) {
            kept.push_back(path);
        }
    }
    if (kept.empty()) {
        setGlobalStatus(QStringLiteral("Aucun fichier audio/vidéo trouvé."));
        return;
    }
    queuePaths(kept);
}

void Model::addFiles(const QStringList& paths) { queuePaths(bytesOf(paths)); }

void Model::queuePaths(const std::vector<std::string>& paths) {
    int added = 0;
    for (const auto& p : paths) {
        std::error_code ec;
        std::filesystem::path absolute = std::filesystem::absolute(p, ec);
        const std::string url = (ec ? std::filesystem::path(p) : absolute.lexically_normal()).native();
        bool known = false;
        for (const auto& i : queue_) known = known || i.url == url;
        if (known) continue;
        FileItem item;
        item.url = url;
        item.name = displayName(std::filesystem::path(url).filename().native());
        item.isVideo = isVideoPath(url);
        queue_.push_back(std::move(item));
        ++added;
        if (!selectedID_) {
            selectedID_ = queue_.back().id;
            emit selectedIDChanged();
        }
    }
    if (added > 0) {
        emit queueChanged();
        setAnalyzeTotal(analyzeTotal_ + added);
    }
    analyzeNext();
}

void Model::addDropped(const QStringList& paths) {
    std::vector<std::string> files;
    for (const auto& path : bytesOf(paths)) {
        if (!isFolder(path)) {
            files.push_back(path);
            continue;
        }
        const auto inside = acceptedFilesIn(path);
        files.insert(files.end(), inside.begin(), inside.end());
    }
    queuePaths(files);
}

void Model::select(const QUuid& id) {
    if (selectedID_ == id) return;
    selectedID_ = id;
    emit selectedIDChanged();
}

void Model::removeItem(const QUuid& id) {
    const auto before = queue_.size();
    std::erase_if(queue_, [&](const FileItem& i) { return i.id == id; });
    if (queue_.size() == before) return;
    if (selectedID_ == id) {
        selectedID_.reset();
        emit selectedIDChanged();
    }
    emit queueChanged();
}

void Model::analyzeNext() {
    FileItem* next = nullptr;
    if (!busy_)
        for (auto& i : queue_)
            if (i.status == ItemStatus::pending) {
                next = &i;
                break;
            }
    if (!next) {
        if (!busy_ && analyzeTotal_ >= 1 && analyzeDone_ >= analyzeTotal_) {
            setAnalyzeTotal(0);
            setAnalyzeDone(0);
            setAnalyzeCurrent(0);
            setAnalyzingName({});
        }
        if (!busy_) emit idle();
        return;
    }
    setBusy(true);
    next->status = ItemStatus::analysing;
    emit itemChanged(next->id);
    emit queueChanged();
    setAnalyzingName(next->name);
    setAnalyzeCurrent(0);

    const QUuid id = next->id;
    const std::string path = next->url;
    AnalysisSettings settings;
    settings.layout = layout_;
    settings.order = channelOrder_;
    settings.dialogueGating = effectiveGating() == GatingMode::dialog;
    settings.channelEnergies = true;
    settings.overview = true;
    startJob([this, id, path, settings] {
        const auto stamp = stampOf(path);  // before reading: a change during the analysis counts too
        // Anything the analysis could not hold in memory fails this file alone, as too large.
        std::optional<Expected<FileAnalysis>> attempt;
        try {
            attempt.emplace(analyseFile(path, settings, [this](double f) { postProgress(f, &Model::setAnalyzeCurrent); }));
        } catch (const std::bad_alloc&) {
            attempt.emplace(LoudnessError{LoudnessError::Code::tooLarge});
        }
        auto& analysed = *attempt;
        if (!analysed) {
            const QString message = QString::fromStdString(analysed.error().message());
            post([this, id, message] {
                updateItem(id, [&](FileItem& i) {
                    i.status = ItemStatus::readFailed;
                    i.info = message;
                });
                ++analyzeFailed_;
                finishAnalysis(id);
            });
            return;
        }
        auto a = std::make_shared<FileAnalysis>(std::move(*analysed));
        const std::string claimed = claimedLoudness(path);
        auto diagnosis = diagnose(presets(), a->result.integratedLUFS, a->result.truePeakDB);
        post([this, id, a, stamp, claimed, diagnosis = std::move(diagnosis)]() mutable {
            const auto reason = a->unmeasurableReason();
            updateItem(id, [&](FileItem& i) {
                i.sourceStamp = stamp;
                i.truncated = a->truncated;
                i.measured = a->result;
                i.originalMeasure = a->result;
                i.channelTotal = std::size_t(a->channelCount);
                i.frameTotal = a->frameCount;
                i.declaredPositions = a->declaredPositions;
                i.measuredWeights = a->weights;
                i.shortTermCurve = std::move(a->shortTermCurve);
                i.curveStep = a->curveStep;
                i.detail = std::make_shared<const ProgrammeDetail>(std::move(a->detail));
                i.sampleRate = a->sampleRate;
                i.channelEnergies = std::move(a->energies);
                i.inversionWarning = a->inversion;
                i.multiNormDiagnosis = std::move(diagnosis);
                i.waveformPeaks = std::move(a->waveformPeaks);
                i.spectrumBins = std::move(a->spectrumBins);
                if (!reason) {
                    i.info = QString::fromStdString(a->infoLine() + claimed);
                    i.status = ItemStatus::ready;
                } else {
                    i.info = QString::fromStdString(*reason);
                    i.status = ItemStatus::unmeasurable;
                }
            });
            if (reason) {
                ++analyzeFailed_;
                if (const auto* i = item(id))
                    setGlobalStatus(QStringLiteral("« %1 » : %2").arg(i->name, QString::fromStdString(*reason)));
            }
            finishAnalysis(id);
        });
    });
}

void Model::finishAnalysis(const QUuid&) {
    setAnalyzeDone(analyzeDone_ + 1);
    setAnalyzeCurrent(0);
    if (analyzeTotal_ >= 1 && analyzeDone_ < analyzeTotal_) {
        setGlobalStatus(QStringLiteral("Analyse %1/%2…").arg(analyzeDone_).arg(analyzeTotal_));
    } else if (analyzeTotal_ >= 1) {
        // The count says what the session now holds; the ✓ only when every file could be measured.
        const auto files = [](int n) { return QStringLiteral("%1 fichier%2").arg(n).arg(n > 1 ? "s" : ""); };
        if (analyzeFailed_ == 0)
            setGlobalStatus(QStringLiteral("Analyse terminée ✓ (%1)").arg(files(analyzeTotal_)));
        else
            setGlobalStatus(QStringLiteral("Analyse terminée : %1, %2 échec%3")
                                .arg(files(analyzeTotal_))
                                .arg(analyzeFailed_)
                                .arg(analyzeFailed_ > 1 ? "s" : ""));
        analyzeFailed_ = 0;
    }
    setBusy(false);
    analyzeNext();
}

void Model::remeasureSelected() {
    assign(layoutWarning_, QString(), &Model::layoutWarningChanged);
    const FileItem* selected = selectedItem();
    if (!selected || !selected->hasAudio() || busy_) return;
    const int count = int(selected->channelCount());
    if (auto warning = layoutMismatchWarning(layout_, count))
        assign(layoutWarning_, QString::fromStdString(*warning), &Model::layoutWarningChanged);
    const auto weights = resolveChannelWeights(count, layout_, channelOrder_, selected->declaredPositions);
    const QUuid id = selected->id;
    std::shared_ptr<const Programme> source = programmeFor(selected->url, selected->isVideo, selected->channelCount(),
                                                           selected->frameTotal, selected->sampleRate);
    setBusy(true);
    startJob([this, id, source, weights] {
        std::optional<LoudnessResult> result;
        auto detail = std::make_shared<ProgrammeDetail>();
        const auto measured = measureStreamed(*source, weights, {}, detail.get());
        if (measured) result = *measured;
        post([this, id, result, weights, detail,
              failure = measured ? QString() : QString::fromStdString(measured.error().message())] {
            if (result)
                updateItem(id, [&](FileItem& i) {
                    i.detail = detail;
                    i.measured = *result;
                    i.originalMeasure = *result;
                    i.measuredWeights = weights;
                });
            else
                setGlobalStatus(failure);
            setBusy(false);
            analyzeNext();
        });
    });
}

// --- Norm -----------------------------------------------------------------------------------

void Model::applyPreset(int index) {
    if (index < 0 || index >= int(presets().size())) return;
    setPresetIndex(index);
    const auto selection = velmora::applyPreset(presets()[std::size_t(index)], gatingMode_);
    setTarget(selection.target);
    setCeiling(selection.ceiling);
    setDisplayUnit(selection.displayUnit);
    setGatingMode(selection.gatingMode);
}

GatingMode Model::effectiveGating() const { return effectiveGatingMode(gatingMode_, presetAt(presetIndex_)); }

bool Model::ceilingLocked() const { return presetAt(presetIndex_).ceilingLocked; }

std::optional<PADCheck> Model::selectedPADCheck(std::optional<bool> isShort) const {
    const FileItem* item = selectedItem();
    if (!item || !item->measured) return std::nullopt;
    const LoudnessResult& m = *item->measured;
    // Only the length decides between the short and long rules: a chosen length stands in
    // for the file's own.
    const double seconds = isShort ? (*isShort ? 0.0 : std::numeric_limits<double>::infinity()) : selectedDuration();
    return checkPAD(m.loudnessRange, m.integratedLUFS, m.truePeakDB, m.shortTermMax, seconds,
                    dialogueExcursion(m.dialogueShortTermMin, m.dialogueShortTermMax));
}

// --- Setters ----------------------------------------------------------------------------------

void Model::setGlobalStatus(const QString& v) { assign(globalStatus_, v, &Model::globalStatusChanged); }
void Model::setLiveMonitorEnabled(bool v) { assign(liveMonitorEnabled_, v, &Model::liveMonitorEnabledChanged); }
void Model::setLiveMonitorDeviceUID(const QString& v) { assign(liveMonitorDeviceUID_, v, &Model::liveMonitorDeviceUIDChanged); }
void Model::setLiveMonitorChannelL(int v) { assign(liveMonitorChannelL_, v, &Model::liveMonitorChannelLChanged); }
void Model::setLiveMonitorChannelR(int v) { assign(liveMonitorChannelR_, v, &Model::liveMonitorChannelRChanged); }
void Model::setCeiling(double v) { assign(ceiling_, v, &Model::ceilingChanged); }
void Model::setBitDepth(BitDepth v) { assign(bitDepth_, v, &Model::bitDepthChanged); }
void Model::setFileFormat(FileFormat v) { assign(fileFormat_, v, &Model::fileFormatChanged); }
void Model::setOutputRate(double v) { assign(outputRate_, v, &Model::outputRateChanged); }
void Model::setLayout(ChannelLayout v) { assign(layout_, v, &Model::layoutChanged); }
void Model::setChannelOrder(ChannelOrder v) { assign(channelOrder_, v, &Model::channelOrderChanged); }
void Model::setExportLog(bool v) { assign(exportLog_, v, &Model::exportLogChanged); }
void Model::setExportPDF(bool v) { assign(exportPDF_, v, &Model::exportPDFChanged); }
void Model::setShowsMaster(bool v) { assign(showsMaster_, v, &Model::showsMasterChanged); }
void Model::setReportLanguage(ReportLanguage v) { assign(reportLanguage_, v, &Model::reportLanguageChanged); }
void Model::setMultiMasterPresetIndices(const std::set<int>& v) {
    assign(multiMasterPresetIndices_, v, &Model::multiMasterPresetIndicesChanged);
}
void Model::setShowMultiMaster(bool v) { assign(showMultiMaster_, v, &Model::showMultiMasterChanged); }
void Model::setMp(const MasterParams& v) {
    // Heard from the next block while live mastering plays.
    if (isLiveMastering_ && liveStreamer_ && !(mp_ == v)) liveStreamer_->update(v, 0.0);
    if (playback_) playback_->setChain(v);
    assign(mp_, v, &Model::mpChanged);
    if (isLiveMastering_ || isPlaybackPlaying_) matchAB();  // the source side follows the chain's loudness
}
void Model::setMode(ProcessMode v) { assign(mode_, v, &Model::modeChanged); }
void Model::setTarget(double v) { assign(target_, v, &Model::targetChanged); }
void Model::setGatingMode(GatingMode v) { assign(gatingMode_, v, &Model::gatingModeChanged); }
void Model::setBusy(bool v) { assign(busy_, v, &Model::busyChanged); }
void Model::setBatchTotal(int v) { assign(batchTotal_, v, &Model::batchTotalChanged); }
void Model::setBatchDone(int v) { assign(batchDone_, v, &Model::batchDoneChanged); }
void Model::setBatchCurrent(double v) { assign(batchCurrent_, v, &Model::batchCurrentChanged); }
void Model::setProcessingName(const QString& v) { assign(processingName_, v, &Model::processingNameChanged); }
void Model::setAnalyzeTotal(int v) { assign(analyzeTotal_, v, &Model::analyzeTotalChanged); }
void Model::setAnalyzeDone(int v) { assign(analyzeDone_, v, &Model::analyzeDoneChanged); }
void Model::setAnalyzeCurrent(double v) { assign(analyzeCurrent_, v, &Model::analyzeCurrentChanged); }
void Model::setAnalyzingName(const QString& v) { assign(analyzingName_, v, &Model::analyzingNameChanged); }
void Model::setMultiMasterCurrent(int v) { assign(multiMasterCurrent_, v, &Model::multiMasterCurrentChanged); }
void Model::setMultiMasterTotal(int v) { assign(multiMasterTotal_, v, &Model::multiMasterTotalChanged); }
void Model::setMultiMasterCurrentLabel(const QString& v) {
    assign(multiMasterCurrentLabel_, v, &Model::multiMasterCurrentLabelChanged);
}
void Model::setIsPreviewing(bool v) { assign(isPreviewing_, v, &Model::isPreviewingChanged); }
void Model::setDisplayUnit(LoudnessUnit v) { assign(displayUnit_, v, &Model::displayUnitChanged); }
void Model::setPresetIndex(int v) { assign(presetIndex_, v, &Model::presetIndexChanged); }

}  // namespace velmora
