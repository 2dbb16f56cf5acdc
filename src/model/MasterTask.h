#pragma once
// One master from one analysed source, as the batch and multi-master jobs make it: the chain,
// the conformity gain through the limiter, the write (under the source's picture for a video),
// the new measurement, and the reports beside the master. Runs on a job thread; touches no
// model state.
#include <QString>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "measurement/ProgrammeDetail.h"
#include "audio/SourceStamp.h"
#include "output/MasterDelivery.h"
#include "reports/ReportInputs.h"

namespace velmora {

// What a master is made from: the file, read again for each pass (its shape as analysed).
std::unique_ptr<Programme> programmeFor(const std::string& path, bool isVideo, std::size_t channels, std::size_t frames,
                                        double sampleRate);

struct MasterTask {
    std::size_t channelCount = 0, frames = 0;  // as analysed
    double sampleRate = 0;
    std::vector<double> weights;
    std::string sourcePath;
    std::optional<SourceStamp> sourceStamp;  // as analysed: a source changed since is refused
    QString sourceName;
    bool isVideo = false;  // the master becomes a movie with the source's picture
    bool truncated = false;  // the source was cut short, which its reports say
    LoudnessResult before;
    std::optional<double> sourceIntegratedLUFS;  // see DeliveryRequest
    std::optional<double> sourceTruePeakDB;      // see DeliveryRequest
    std::vector<double> beforeCurve;  // short-term loudness of the source, every curveStep seconds
    double curveStep = 1.0;
    std::shared_ptr<const ProgrammeDetail> sourceDetail;  // the source's events come from it
    std::vector<std::string> channelLabels;
    int presetIndex = 0;
    double target = -23.0, ceiling = -1.0;
    MasterParams params;
    BitDepth depth = BitDepth::int24;
    FileFormat format = FileFormat::wav;
    double outputRate = 0;
    std::optional<SpeakerLayout> layout;
    std::string destination;
    bool textReport = false, pdfReport = false;
    ReportLanguage language = ReportLanguage::fr;
    std::optional<ReportInputs::Album> album;  // a track of an album batch
};

struct MasterOutcome {
    std::optional<QString> error;  // the user's message when the master could not be made
    bool interrupted = false;      // SIGINT or SIGTERM stopped it: nothing was written
    LoudnessResult after;
    double maxGR = 0, protectionAppliedDB = 0;
    std::string writtenPath;
    std::optional<double> targetMissedLUFS;  // see DeliveryReport
    std::optional<ReportInputs> reportInputs;  // when the task asks for reports
};

// The master only; its reports are written by writeReports, which can overlap the next master.
MasterOutcome makeMaster(const MasterTask& task, const ProgressFn& progress);
// What went wrong with the reports the task asks for, in the words of the item's line
// ("rapport PDF non écrit : disque plein"); empty when each was written.
QString writeReports(const MasterTask& task, const MasterOutcome& outcome);

// The reports of one master at a time, written on their own thread while the job goes on; `done`
// hears, on that thread, what writeReports said.
class ReportWriter {
public:
    ~ReportWriter() { finish(); }
    void start(MasterTask task, MasterOutcome outcome, std::function<void(QString)> done);
    void finish();  // waits for the reports started last

private:
    std::future<void> running_;
};


}  // namespace velmora
