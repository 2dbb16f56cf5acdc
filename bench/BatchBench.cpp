// A batch of twenty 3-minute stereo files through the application's model, with both reports,
// against the render and write alone on the same files: the difference is what a batch costs
// beyond making the masters (the new measurement, the two reports, the model's traffic).
#include <benchmark/benchmark.h>

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "audio/AudioFileReader.h"
#include "mastering/Conformance.h"
#include "mastering/Limiter.h"
#include "mastering/Render.h"
#include "model/Model.h"
#include "output/MasterWriter.h"
#include "Programme.h"
#include "QtApplication.h"

namespace {

namespace fs = std::filesystem;
constexpr int kFiles = 20;
constexpr double kMinutes = 3.0;

void waitIdle(velmora::Model& model) {
    if (!model.busy()) return;
    QEventLoop loop;
    QObject::connect(&model, &velmora::Model::idle, &loop, &QEventLoop::quit);
    loop.exec();
    model.waitForJob();
}

// Twenty copies of the 3-minute programme, analysed once and shared by both benchmarks.
struct Batch {
    fs::path folder = fs::temp_directory_path() / "velmora-bench-batch";
    velmora::FixedChoosers choosers;
    std::unique_ptr<velmora::Model> model;

    Batch() {
        velmora::bench::ensureQtApplication();
        fs::remove_all(folder);
        fs::create_directories(folder / "in");
        const auto& source = velmora::bench::programmeWav24(kMinutes);
        QStringList files;
        for (int i = 0; i < kFiles; ++i) {
            const auto copy = (folder / "in" / std::to_string(100 + i)).replace_extension("wav");
            fs::copy_file(source, copy);
            files << QString::fromStdString(copy.string());
        }
        model = std::make_unique<velmora::Model>(nullptr, &choosers);
        model->addFiles(files);
        waitIdle(*model);
        model->setExportLog(true);
        model->setExportPDF(true);
    }

    // Empty, and with the previous run's writes on disk, so no run pays for another's.
    fs::path freshOutput(const char* name) const {
        const auto out = folder / name;
        fs::remove_all(out);
        fs::create_directories(out);
        ::sync();
        return out;
    }
};

// Never destroyed: the model's Qt objects must not outlive the application at exit. The
// folder goes with the process.
Batch& batch() {
    static Batch* b = [] {
        auto* made = new Batch;
        std::atexit([] { fs::remove_all(fs::temp_directory_path() / "velmora-bench-batch"); });
        return made;
    }();
    return *b;
}

void BM_BatchWithReports(benchmark::State& state) {
    auto& b = batch();
    // The longest pause of the main thread's event loop while the job runs, seen by a 5 ms timer.
    qint64 worstStallMs = 0;
    QElapsedTimer sinceTick;
    QTimer tick;
    QObject::connect(&tick, &QTimer::timeout, [&] { worstStallMs = std::max(worstStallMs, sinceTick.restart()); });
    for (auto _ : state) {
        b.choosers.folder = QString::fromStdString(b.freshOutput("out").string());
        sinceTick.start();
        tick.start(5);
        const auto t0 = std::chrono::steady_clock::now();
        b.model->exportBatch();
        waitIdle(*b.model);
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
        tick.stop();
        if (!b.model->lastBatchFailures().empty()) state.SkipWithError("a file failed");
    }
    state.counters["worst_stall_ms"] = double(worstStallMs);
    state.counters["per_file_s"] = benchmark::Counter(double(state.iterations()) * kFiles,
                                                      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// The chain, the conformity gain (from the loudness the analysis measured, as the batch does)
// through the limiter, and the write with its true-peak check: nothing else.
void BM_BatchRenderAndWriteOnly(benchmark::State& state) {
    auto& b = batch();
    for (auto _ : state) {
        const auto out = b.freshOutput("bare");
        const auto t0 = std::chrono::steady_clock::now();
        int n = 0;
        for (const auto& item : b.model->queue()) {
            const std::vector<double> weights(item.channelCount(), 1.0);
            auto audio = velmora::loadAudio(item.url, item.isVideo);
            auto rendered = velmora::renderMaster(std::move(audio->channels), velmora::MasterParams{}, item.sampleRate, weights);
            auto plan = velmora::planConformance(std::move(rendered.channels), item.sampleRate, -23.0, -1.0,
                                                 velmora::MasterParams{}, weights, item.originalMeasure->integratedLUFS);
            auto limited = velmora::limitToCeiling(plan->beforeLimiter, item.sampleRate, plan->gainLin, -1.0);
            velmora::WriteRequest request;
            request.destination = (out / std::to_string(n++)).replace_extension("wav").string();
            velmora::TruePeakObserver truePeak(limited.size());
            (void)velmora::writeMaster(limited, item.sampleRate, request, &truePeak);
        }
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
    }
}

}  // namespace

BENCHMARK(BM_BatchWithReports)->Unit(benchmark::kSecond)->Iterations(3)->UseManualTime();
BENCHMARK(BM_BatchRenderAndWriteOnly)->Unit(benchmark::kSecond)->Iterations(3)->UseManualTime();
