#pragma once
// The application's one observable state: the queue of files, the chosen norm and output
// settings, the chain, progress and the status line. It lives on the main thread and every
// field is written there; jobs run on worker threads with a copy of what they need and post
// each update back. Every published field announces its changes with its own signal.
#include <QObject>
#include <QSettings>
#include <QTimer>
#include <QString>
#include <QUuid>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <thread>
#include <vector>

#include "audio/ChannelLayout.h"
#include "mastering/LiveMeter.h"
#include "mastering/MasterParams.h"
#include "model/Choosers.h"
#include "model/FileItem.h"
#include "model/MasterTask.h"
#include "model/Presets.h"
#include "model/StoredList.h"
#include "norms/PADCheck.h"
#include "output/Album.h"
#include "output/OutputFormat.h"
#include "reports/ReportInputs.h"

namespace velmora {

class ABMatcher;
class FilePlaybackController;
class LiveMonitor;
class OnlineMasteringStreamer;
struct OutputDevice;

// A master the last batch or multi-master job could not make: the file (or the norm) and why.
struct BatchFailure {
    QString name;
    QString message;
    bool reportOnly = false;  // the master was written; a report of it was not
};

class Model : public QObject {
    Q_OBJECT
public:
    // `store` keeps the settings and presets between runs; without one nothing is remembered
    // (the command line). `choosers` answers the panels; the model does not own it.
    explicit Model(std::unique_ptr<QSettings> store, Choosers* choosers, QObject* parent = nullptr);
    ~Model() override;  // waits for a running job

    // The per-user store of the desktop application.
    static std::unique_ptr<QSettings> userStore();

    static const QStringList& acceptedExtensions();

    // --- Queue and analysis -------------------------------------------------------------
    void openFiles();
    // What the open panel does with its answer, for paths given any other way (the desktop
    // application's arguments): folders are walked, files kept when their extension is accepted.
    void addFilesOrFolders(const QStringList& paths);
    void addFiles(const QStringList& paths);
    // addFilesOrFolders with paths as the file system's bytes, whatever their encoding.
    void addPaths(const std::vector<std::string>& paths);
    // What was dropped on the window: each folder is searched as the open panel searches it,
    // each file is queued as it is (addFiles).
    void addDropped(const QStringList& paths);
    void analyzeNext();
    void remeasureSelected();
    void select(const QUuid& id);
    void removeItem(const QUuid& id);
    const FileItem* selectedItem() const;
    const FileItem* item(const QUuid& id) const;

    // --- Norm ----------------------------------------------------------------------------
    void applyPreset(int index);
    GatingMode effectiveGating() const;
    bool ceilingLocked() const;
    // The French TV delivery check (CST RT-040) of the selected file's measurement; nothing
    // without one. `isShort` chooses the programme length, else the file's duration decides.
    std::optional<PADCheck> selectedPADCheck(std::optional<bool> isShort = std::nullopt) const;

    // --- Jobs ----------------------------------------------------------------------------
    void saveMaster();
    // saveMaster() would open its panel: a measured file is selected and no job runs.
    bool canSaveMaster() const;
    void exportBatch();
    // exportBatch() would open its panel: files are queued and no job runs.
    bool canExportBatch() const;
    void startMultiMaster();
    // startMultiMaster() would open its panel: a measured file is selected, a norm is ticked and
    // no job runs.
    bool canStartMultiMaster() const;
    void generateAB();
    // "Générer un bruit rose RLL": asks where, then writes the calibration noise there.
    void saveRLLCalibration();
    const std::vector<BatchFailure>& lastBatchFailures() const { return batchFailures_; }
    // Album mode: the batch brings its files to the target together (see output/Album.h).
    bool album() const { return album_; }
    void setAlbum(bool v);
    // The last album batch's plan: the album's loudness, the one gain, how far it was lowered.
    const std::optional<AlbumPlan>& lastAlbum() const { return lastAlbum_; }
    // "<name>_master_-23LUFS.wav": what the save panel proposes for the selected file.
    QString proposedSaveName() const;
    // Blocks until the running job's thread has ended (the command line, tests).
    void waitForJob();

    // --- Multi-master selection and packs ------------------------------------------------
    void tickAllNorms();
    void untickAllNorms();
    void tickGroup(const std::vector<int>& indices);
    void savePack(const QString& name);
    void deletePack(const QUuid& id);
    void applyPack(const QUuid& id);

    // --- Listening ---------------------------------------------------------------------------
    // The output devices, for the preferences' picker (opens the audio library at first use).
    std::vector<OutputDevice> outputDevices();
    // Routes the live monitor to the chosen device and channels: nothing, or why not.
    std::optional<QString> configureLiveMonitor();
    void testLiveMonitor();  // the 1 kHz test tone on the chosen route
    void startLiveMastering();
    void stopLiveMastering();
    void togglePlayback();  // plain listening to the selected file on the default output
    void stopPlayback();    // and rewind
    void seekPlayback(double fraction);
    // What the space bar does: live mastering when it is enabled with a device, else playback.
    void toggleListening();
    bool isLiveMastering() const { return isLiveMastering_; }
    bool isPlaybackPlaying() const { return isPlaybackPlaying_; }
    // 0 … 1: the live streamer's playhead while live mastering runs, else plain playback's.
    double playPosition() const;
    // Seconds of the selected file, 0 without one.
    double selectedDuration() const;
    // The live meter's readings while live mastering runs: they stand in for the stored
    // measurements.
    std::optional<LiveMeter::Readings> liveLevels() const;
    // The loudness at the playhead while plain playback plays, shown beside the transport.
    std::optional<LiveMeter::Readings> playbackLevels() const;
    // Whether any output exists for plain playback to play to (asks the audio library at first).
    bool hasAudioOutput();
    // What the equaliser graph draws under its curve: while anything plays, 256 bands of the
    // 4096 frames at the play position; otherwise the selected file's stored spectrum.
    std::vector<float> displaySpectrum() const;
    const QString& liveMonitorDeviceName() const { return liveMonitorDeviceName_; }
    // The A/B switch: the source (A), played at the loudness of the chain's output, or the chain's
    // output (B); flipped while a file plays with a short crossfade, and said in the status line.
    // Live mastering starts on B and, once it stops, leaves the switch on A, plain playback's
    // side until it is flipped.
    void toggleAB();
    bool abSourceHeard() const { return abSourceHeard_; }
    // dB the source side gets, and whether it is measured yet (else the best estimate).
    double abMatchGainDB() const;
    bool abMatchMeasured() const;

    // --- Settings and user presets ---------------------------------------------------------
    void loadUserPresets();
    void loadSettings();
    void saveSettings();
    void saveUserPresets();
    void saveUserPreset(const QString& name);
    void loadUserPreset(const QUuid& id);
    void deleteUserPreset(const QUuid& id);

    // --- Published fields ----------------------------------------------------------------
    const std::vector<FileItem>& queue() const { return queue_; }
    std::optional<QUuid> selectedID() const { return selectedID_; }
    bool busy() const { return busy_; }
    const QString& globalStatus() const { return globalStatus_; }
    int batchTotal() const { return batchTotal_; }
    int batchDone() const { return batchDone_; }
    int analyzeTotal() const { return analyzeTotal_; }
    int analyzeDone() const { return analyzeDone_; }
    double analyzeCurrent() const { return analyzeCurrent_; }
    const QString& analyzingName() const { return analyzingName_; }
    double batchCurrent() const { return batchCurrent_; }
    const QString& processingName() const { return processingName_; }
    bool liveMonitorEnabled() const { return liveMonitorEnabled_; }
    const QString& liveMonitorDeviceUID() const { return liveMonitorDeviceUID_; }
    int liveMonitorChannelL() const { return liveMonitorChannelL_; }
    int liveMonitorChannelR() const { return liveMonitorChannelR_; }
    const std::vector<NamedPreset>& userPresets() const { return userPresets_; }
    const std::vector<MultiMasterPack>& multiMasterPacks() const { return multiMasterPacks_; }
    double ceiling() const { return ceiling_; }
    BitDepth bitDepth() const { return bitDepth_; }
    FileFormat fileFormat() const { return fileFormat_; }
    double outputRate() const { return outputRate_; }
    ChannelLayout layout() const { return layout_; }
    ChannelOrder channelOrder() const { return channelOrder_; }
    const QString& layoutWarning() const { return layoutWarning_; }
    bool exportLog() const { return exportLog_; }
    bool exportPDF() const { return exportPDF_; }
    // Whether the measures, the conformity and the diagnosis show the selected file's last master
    // (when it has one) rather than its source. Not persisted: a view choice.
    bool showsMaster() const { return showsMaster_; }
    ReportLanguage reportLanguage() const { return reportLanguage_; }
    const std::set<int>& multiMasterPresetIndices() const { return multiMasterPresetIndices_; }
    bool showMultiMaster() const { return showMultiMaster_; }
    int multiMasterCurrent() const { return multiMasterCurrent_; }
    int multiMasterTotal() const { return multiMasterTotal_; }
    const QString& multiMasterCurrentLabel() const { return multiMasterCurrentLabel_; }
    const MasterParams& mp() const { return mp_; }
    ProcessMode mode() const { return mode_; }
    bool isPreviewing() const { return isPreviewing_; }
    double target() const { return target_; }
    int presetIndex() const { return presetIndex_; }
    GatingMode gatingMode() const { return gatingMode_; }
    LoudnessUnit displayUnit() const { return displayUnit_; }

    // Settings the interface changes directly.
    void setGlobalStatus(const QString& v);
    void setLiveMonitorEnabled(bool v);
    void setLiveMonitorDeviceUID(const QString& v);
    void setLiveMonitorChannelL(int v);
    void setLiveMonitorChannelR(int v);
    void setCeiling(double v);
    void setBitDepth(BitDepth v);
    void setFileFormat(FileFormat v);
    void setOutputRate(double v);
    void setLayout(ChannelLayout v);
    void setChannelOrder(ChannelOrder v);
    void setExportLog(bool v);
    void setExportPDF(bool v);
    void setShowsMaster(bool v);
    void setReportLanguage(ReportLanguage v);
    void setMultiMasterPresetIndices(const std::set<int>& v);
    void setShowMultiMaster(bool v);
    void setMp(const MasterParams& v);
    void setMode(ProcessMode v);
    void setTarget(double v);
    void setGatingMode(GatingMode v);

signals:
    void queueChanged();
    void selectedIDChanged();
    void busyChanged();
    void globalStatusChanged();
    void batchTotalChanged();
    void batchDoneChanged();
    void analyzeTotalChanged();
    void analyzeDoneChanged();
    void analyzeCurrentChanged();
    void analyzingNameChanged();
    void batchCurrentChanged();
    void processingNameChanged();
    void liveMonitorEnabledChanged();
    void liveMonitorDeviceUIDChanged();
    void liveMonitorChannelLChanged();
    void liveMonitorChannelRChanged();
    void userPresetsChanged();
    void multiMasterPacksChanged();
    void ceilingChanged();
    void bitDepthChanged();
    void fileFormatChanged();
    void outputRateChanged();
    void layoutChanged();
    void channelOrderChanged();
    void layoutWarningChanged();
    void exportLogChanged();
    void albumChanged();
    void exportPDFChanged();
    void showsMasterChanged();
    void reportLanguageChanged();
    void multiMasterPresetIndicesChanged();
    void showMultiMasterChanged();
    void multiMasterCurrentChanged();
    void multiMasterTotalChanged();
    void multiMasterCurrentLabelChanged();
    void mpChanged();
    void modeChanged();
    void isPreviewingChanged();
    void targetChanged();
    void presetIndexChanged();
    void gatingModeChanged();
    void displayUnitChanged();
    void isLiveMasteringChanged();
    void isPlaybackPlayingChanged();
    void liveMonitorDeviceNameChanged();
    void abSourceHeardChanged();
    // About twenty times a second while something plays: the position and the meter moved.
    void playbackTick();
    // One item changed (status, info, measurement); queueChanged follows too.
    void itemChanged(const QUuid& id);
    // A job or the analysis queue has nothing more to do.
    void idle();

private:
    template <typename T, typename Signal>
    void assign(T& field, const T& value, Signal signal) {
        if (field == value) return;
        field = value;
        emit(this->*signal)();
    }
    FileItem* findItem(const QUuid& id);
    // What every master of the item shares, from the current settings.
    MasterTask taskFor(const FileItem& item) const;
    void updateItem(const QUuid& id, const std::function<void(FileItem&)>& change);
    void setBusy(bool v);
    void setBatchTotal(int v);
    void setBatchDone(int v);
    void setBatchCurrent(double v);
    void setProcessingName(const QString& v);
    void setAnalyzeTotal(int v);
    void setAnalyzeDone(int v);
    void setAnalyzeCurrent(double v);
    void setAnalyzingName(const QString& v);
    void setMultiMasterCurrent(int v);
    void setMultiMasterTotal(int v);
    void setMultiMasterCurrentLabel(const QString& v);
    void setIsPreviewing(bool v);
    void setDisplayUnit(LoudnessUnit v);
    void setPresetIndex(int v);

    // Runs `work` on the job thread; `post` hands a change to the main thread.
    void startJob(std::function<void()> work);
    void post(std::function<void()> change);
    // Progress values arrive far more often than anyone can see them: keep one in flight.
    void postProgress(double fraction, void (Model::*setter)(double));
    void finishAnalysis(const QUuid& id);
    LiveMonitor& liveMonitor();
    void onLiveMonitorChanged();
    void onPlaybackTick();
    void setIsLiveMastering(bool v);
    void setIsPlaybackPlaying(bool v);
    void updatePlaybackTimer();  // ticks while anything plays
    // The file playback's output changed or went away: stop and say why.
    void onPlaybackOutputChanged();
    FilePlaybackController& playback();
    void setABSourceHeard(bool v);
    // Asks for the loudness match of what plays now, and hands the side and its gain to it.
    void matchAB();
    void applyAB();
    QString abStatus() const;
    std::optional<bool> hasAudioOutput_;  // asked once, again after a device change

    void queuePaths(const std::vector<std::string>& paths);  // addFiles, in bytes

    std::unique_ptr<QSettings> store_;
    Choosers* choosers_;
    std::thread job_;
    std::shared_ptr<std::atomic<bool>> progressInFlight_;
    std::shared_ptr<std::atomic<double>> progressValue_;
    std::vector<BatchFailure> batchFailures_;

    std::vector<FileItem> queue_;
    std::optional<QUuid> selectedID_;
    bool busy_ = false;
    QString globalStatus_;
    int batchTotal_ = 0, batchDone_ = 0;
    int analyzeTotal_ = 0, analyzeDone_ = 0;
    int analyzeFailed_ = 0;  // files of the current run that could not be measured
    double analyzeCurrent_ = 0;
    QString analyzingName_;
    double batchCurrent_ = 0;
    QString processingName_;
    bool liveMonitorEnabled_ = false;
    QString liveMonitorDeviceUID_;
    int liveMonitorChannelL_ = 0, liveMonitorChannelR_ = 1;
    std::vector<NamedPreset> userPresets_;
    std::vector<MultiMasterPack> multiMasterPacks_;
    StoreBase storeBase_;  // what the store held when this model last read or wrote it
    double ceiling_ = -1.0;
    BitDepth bitDepth_ = BitDepth::int24;
    FileFormat fileFormat_ = FileFormat::wav;
    double outputRate_ = 0;
    ChannelLayout layout_ = ChannelLayout::autoDetect;
    ChannelOrder channelOrder_ = ChannelOrder::smpte;
    QString layoutWarning_;
    bool exportLog_ = true, exportPDF_ = true;
    bool showsMaster_ = true;
    bool album_ = false;
    std::optional<AlbumPlan> lastAlbum_;
    ReportLanguage reportLanguage_ = ReportLanguage::fr;
    std::set<int> multiMasterPresetIndices_;
    bool showMultiMaster_ = false;
    int multiMasterCurrent_ = 0, multiMasterTotal_ = 0;
    QString multiMasterCurrentLabel_;
    MasterParams mp_;
    ProcessMode mode_ = ProcessMode::master;
    bool isPreviewing_ = false;  // the A/B excerpts are being written
    double target_ = -23.0;
    int presetIndex_ = 0;
    GatingMode gatingMode_ = GatingMode::autoMode;
    LoudnessUnit displayUnit_ = LoudnessUnit::lufs;

    // Declared last, destroyed first: the streams stop before anything else goes.
    bool isLiveMastering_ = false, isPlaybackPlaying_ = false;
    QString liveMonitorDeviceName_;
    std::shared_ptr<OnlineMasteringStreamer> liveStreamer_;
    std::shared_ptr<LiveMeter> liveMeter_;
    std::unique_ptr<FilePlaybackController> playback_;
    std::unique_ptr<LiveMonitor> liveMonitor_;
    QTimer playbackTimer_;
    bool abSourceHeard_ = true;
    // Plain playback plays the file as it is until the comparison is asked for (the A/B switch);
    // from then until it stops, its source side is matched to the chain's loudness.
    bool abComparing_ = false;
    std::unique_ptr<ABMatcher> abMatcher_;  // first to go: its threads post to this model
};

}  // namespace velmora
