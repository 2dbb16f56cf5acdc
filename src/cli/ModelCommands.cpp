// batch and multimaster: the command line drives the application's own model and jobs, with the
// panels answered from the arguments, so a script gets exactly what the desktop would write.
#include <QEventLoop>
#include <QGuiApplication>
#include <QRegularExpression>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>

#include "audio/LoudnessError.h"
#include "audio/NumberFormat.h"
#include "cli/BatchLines.h"
#include "cli/Commands.h"
#include "cli/FileList.h"
#include "cli/Progress.h"
#include "cli/Settings.h"
#include "model/MasterNames.h"
#include "model/Model.h"
#include "norms/Presets.h"
#include "output/Interruption.h"
#include "output/MasterDelivery.h"

namespace velmora::cli {

namespace {

// Qt's notes about the session (no runtime folder, no display) mean nothing to a script
// reading our output; real failures still come through.
void quietQtNotes(QtMsgType type, const QMessageLogContext&, const QString& message) {
    if (type == QtCriticalMsg || type == QtFatalMsg) std::cerr << "velmora-cli: " << message.toStdString() << '\n';
}

// The PDF report draws text, which needs a GUI application; no display is ever opened.
std::unique_ptr<QGuiApplication> headlessApplication() {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qInstallMessageHandler(quietQtNotes);
    static int argc = 1;
    static char name[] = "velmora-cli";
    static char* argv[] = {name, nullptr};
    return std::make_unique<QGuiApplication>(argc, argv);
}

// The file's name as the file system has it, so a script can find it whatever its encoding.
std::string nameOf(const FileItem& item) { return std::filesystem::path(item.url).filename().native(); }

void waitUntilIdle(Model& model) {
    if (!model.busy()) return;
    QEventLoop loop;
    QObject::connect(&model, &Model::idle, &loop, &QEventLoop::quit);
    loop.exec();
    model.waitForJob();
}

struct ReportOptions {
    bool text = false, pdf = false;
    ReportLanguage language = ReportLanguage::fr;
};

ReportOptions parseReportOptions(Args& args) {
    ReportOptions r;
    r.text = args.flag("--txt");
    r.pdf = args.flag("--pdf");
    if (auto v = args.option("--lang")) {
        if (*v == "fr") r.language = ReportLanguage::fr;
        else if (*v == "en") r.language = ReportLanguage::en;
        else throw UsageError("--lang: expected fr or en, not " + *v);
    }
    return r;
}

void configure(Model& model, const MasterOptions& o, const ReportOptions& r) {
    model.setLayout(o.measure.layout);
    model.setChannelOrder(o.measure.order);
    model.applyPreset(o.measure.norm);
    model.setGatingMode(o.measure.gating);
    model.setTarget(o.targetLUFS);
    model.setCeiling(o.ceilingDB);
    model.setMode(o.mode);
    model.setMp(o.params);
    model.setFileFormat(o.format);
    model.setBitDepth(o.depth);
    model.setOutputRate(o.outputRate);
    model.setExportLog(r.text);
    model.setExportPDF(r.pdf);
    model.setReportLanguage(r.language);
}

bool makeFolder(const std::string& folder) {
    std::error_code ec;
    std::filesystem::create_directories(folder, ec);
    if (std::filesystem::is_directory(folder, ec)) return true;
    std::cout << LoudnessError{LoudnessError::Code::cannotWrite}.message() << " (" << folder << ")\n";
    return false;
}

// The model as the desktop holds it, with the panels answered from the arguments.
struct HeadlessSession {
    HeadlessSession(const MasterOptions& o, const ReportOptions& r) {
        choosers.folder = QString::fromStdString(o.output);
        configure(model, o, r);
    }
    std::unique_ptr<QGuiApplication> app = headlessApplication();
    FixedChoosers choosers;
    Model model{nullptr, &choosers};
};

// Queues the inputs as the open panel would and waits for their analysis; prints one line per
// file. Returns how many could not be read or measured.
int analyseInputs(Model& model, const std::vector<std::string>& inputs, std::ostream& out = std::cout) {
    std::unique_ptr<ProgressBar> bar;
    QObject::connect(&model, &Model::analyzingNameChanged, [&] {
        bar.reset();
        if (!model.analyzingName().isEmpty()) bar = std::make_unique<ProgressBar>(model.analyzingName().toStdString());
    });
    QObject::connect(&model, &Model::analyzeCurrentChanged, [&] {
        if (bar) bar->update(model.analyzeCurrent());
    });
    model.addPaths(inputs);  // the arguments' bytes, UTF-8 or not
    if (model.queue().empty()) {
        out << model.globalStatus().toStdString() << '\n';
        return 1;
    }
    waitUntilIdle(model);
    bar.reset();
    QObject::disconnect(&model, &Model::analyzingNameChanged, nullptr, nullptr);
    QObject::disconnect(&model, &Model::analyzeCurrentChanged, nullptr, nullptr);
    int failed = 0;
    for (const auto& item : model.queue()) {
        out << nameOf(item) << " : " << statusText(item.status).toStdString() << " · " << item.info.toStdString() << '\n';
        failed += item.status != ItemStatus::ready;
    }
    return failed;
}

// One bar per master, named after the file or the norm being made.
class JobProgress {
public:
    JobProgress(Model& model, const QString& (Model::*label)() const, void (Model::*labelChanged)()) : model_(model) {
        QObject::connect(&model, labelChanged, &model, [this, label] {
            bar_.reset();
            const QString text = (model_.*label)();
            if (!text.isEmpty()) bar_ = std::make_unique<ProgressBar>(text.toStdString());
        });
        QObject::connect(&model, &Model::batchCurrentChanged, &model, [this] {
            if (bar_) bar_->update(model_.batchCurrent());
        });
    }
    void finish() { bar_.reset(); }

private:
    Model& model_;
    std::unique_ptr<ProgressBar> bar_;
};

void printFailures(const Model& model, std::ostream& out = std::cout) {
    for (const auto& f : model.lastBatchFailures())
        out << (f.reportOnly ? "  Rapport · " : "  Échec · ") << f.name.toStdString() << " : "
            << f.message.toStdString() << '\n';
}

// Ctrl-C and SIGTERM end the job after the file being written is removed; the summary of what
// was done is printed all the same, and the exit status says which signal it was.
int exitStatus(bool failed) {
    if (const int signal = interruptSignal()) return 128 + signal;
    return failed ? 1 : 0;
}

// A batched file as --json tells it: the master is named as the batch job names it.
BatchLine batchLineFor(const Model& model, const FileItem& item, const MasterOptions& o) {
    BatchLine line{item, item.status == ItemStatus::mastered ? "mastered" : "failed", std::nullopt, std::nullopt,
                   o.targetLUFS};
    if (item.status == ItemStatus::mastered) {
        const auto& before = item.sourceMeasure();
        const std::string name = masterFileName(item.name.toStdString(), o.mode, o.targetLUFS,
                                                before ? before->loudnessRange : std::nullopt,
                                                item.isVideo ? std::string_view("mov") : extension(o.format));
        line.master = (std::filesystem::path(o.output) / name).string();
    }
    for (const auto& f : model.lastBatchFailures())
        if (f.name == item.name) line.error = f.message.toStdString();
    if (const auto& album = model.lastAlbum()) {
        line.albumLUFS = album->albumLUFS;
        line.albumGainDB = album->gainDB;
    }
    return line;
}

// " · piste -18.2 → -14.9 LUFS · album -20.3 LUFS": a track of an album, its own loudness
// before and after, and the album's as measured.
std::string albumTrackText(const Model& model, const FileItem& item) {
    const auto& before = item.sourceMeasure();
    return " · piste " + (before ? formatOneDecimal(before->integratedLUFS) : std::string("—")) + " → " +
           (item.measured ? formatOneDecimal(item.measured->integratedLUFS) : std::string("—")) + " LUFS · album " +
           formatOneDecimal(model.lastAlbum()->albumLUFS) + " LUFS";
}

// The files of a batch: those named, then those of --from-list, cut to the task's --slice.
std::vector<std::string> batchInputs(Args& args, bool album) {
    const auto list = args.option("--from-list");
    const auto slice = args.option("--slice");
    // An album is measured as one programme: a task holding part of it would set another gain.
    if (slice && album) throw UsageError("--album measures every track together: it cannot be cut with --slice");
    auto inputs = args.positionals();
    if (list) {
        const auto listed = readFileList(*list);
        inputs.insert(inputs.end(), listed.begin(), listed.end());
    }
    if (slice) return sliceOf(inputs, parseSlice(*slice));
    if (inputs.empty()) throw UsageError("batch: at least one FILE or folder, or --from-list FILE");
    return inputs;
}

}  // namespace

int runBatch(Args& args) {
    const auto o = parseMasterOptions(args, "batch");
    const auto reports = parseReportOptions(args);
    const bool json = args.flag("--json");
    const bool album = args.flag("--album");
    const auto inputs = batchInputs(args, album);
    // With --json, standard output carries the objects only; what a person reads goes to stderr.
    std::ostream& human = json ? std::cerr : std::cout;
    if (inputs.empty()) {
        human << "Rien à traiter : cette tranche de la liste est vide.\n";
        return 0;
    }
    if (!makeFolder(o.output)) return 1;

    HeadlessSession session(o, reports);
    Model& model = session.model;
    model.setAlbum(album);
    const int unreadable = analyseInputs(model, inputs, human);
    if (json)
        for (const auto& item : model.queue())
            if (item.status != ItemStatus::ready)
                std::cout << batchJsonLine({item, "unreadable", std::nullopt, item.info.toStdString(), o.targetLUFS}) << '\n';

    JobProgress progress(model, &Model::processingName, &Model::processingNameChanged);
    QObject::connect(&model, &Model::itemChanged, [&](const QUuid& id) {
        const FileItem* item = model.item(id);
        if (!item || (item->status != ItemStatus::mastered && item->status != ItemStatus::failed)) return;
        progress.finish();
        if (json) {
            std::cout << batchJsonLine(batchLineFor(model, *item, o)) << '\n';
            std::cout.flush();
            return;
        }
        std::cout << nameOf(*item) << " : " << statusText(item->status).toStdString();
        if (item->status == ItemStatus::mastered && item->targetMissedLUFS)
            std::cout << " · " << targetMissedText(*item->targetMissedLUFS);
        if (item->status == ItemStatus::mastered && model.lastAlbum()) std::cout << albumTrackText(model, *item);
        if (item->status == ItemStatus::mastered && !item->reportProblem.isEmpty())
            std::cout << " · " << item->reportProblem.toStdString();
        std::cout << std::endl;  // a script watching the output sees each file as it is done
    });
    stopOnInterruptSignals();
    model.exportBatch();
    waitUntilIdle(model);
    progress.finish();
    printFailures(model, human);
    human << model.globalStatus().toStdString() << '\n';
    return exitStatus(unreadable > 0 || !model.lastBatchFailures().empty());
}

int runMultimaster(Args& args) {
    // Every master of a multi-master is its norm's own: these would be silently overruled.
    for (const char* ignored : {"--target", "--ceiling", "--mode"})
        if (args.option(ignored))
            throw UsageError(std::string("multimaster: ") + ignored +
                             " does not apply: each master takes its norm's target and ceiling, and the chain of --params");
    auto o = parseMasterOptions(args, "multimaster");
    const auto reports = parseReportOptions(args);
    std::set<int> norms;
    if (args.flag("--all")) {
        for (int i = 0; i < int(presets().size()); ++i) norms.insert(i);
    } else if (auto group = args.option("--group")) {
        if (*group == "broadcast") norms = {broadcastGroup().indices.begin(), broadcastGroup().indices.end()};
        else if (*group == "streaming") norms = {streamingGroup().indices.begin(), streamingGroup().indices.end()};
        else throw UsageError("--group: expected broadcast or streaming, not " + *group);
    } else if (auto list = args.option("--norms")) {
        std::size_t start = 0;
        while (start <= list->size()) {
            const auto comma = std::min(list->find(',', start), list->size());
            const int index = parseInt(list->substr(start, comma - start), "--norms");
            if (index < 0 || index >= int(presets().size())) throw UsageError("--norms: indices go from 0 to 20");
            norms.insert(index);
            start = comma + 1;
        }
    } else {
        throw UsageError("multimaster: one of --norms LIST, --group broadcast|streaming or --all");
    }
    const auto inputs = args.positionals();
    if (inputs.size() != 1) throw UsageError("multimaster: exactly one FILE");
    if (!makeFolder(o.output)) return 1;

    HeadlessSession session(o, reports);
    Model& model = session.model;
    if (analyseInputs(model, inputs) > 0) return 1;

    model.setMultiMasterPresetIndices(norms);
    JobProgress progress(model, &Model::multiMasterCurrentLabel, &Model::multiMasterCurrentLabelChanged);
    QObject::connect(&model, &Model::globalStatusChanged, [&] {
        static const QRegularExpression step(QStringLiteral("^Multi-Master \\d+/\\d+ · "));
        if (step.match(model.globalStatus()).hasMatch()) {
            progress.finish();
            std::cout << model.globalStatus().toStdString() << std::endl;
        }
    });
    stopOnInterruptSignals();
    model.startMultiMaster();
    waitUntilIdle(model);
    progress.finish();
    printFailures(model);
    if (!model.busy() && !model.globalStatus().startsWith("Multi-Master terminé")) {
        std::cout << model.globalStatus().toStdString() << '\n';
        return exitStatus(true);
    }
    std::cout << model.globalStatus().toStdString() << '\n';
    return exitStatus(!model.lastBatchFailures().empty());
}

}  // namespace velmora::cli
