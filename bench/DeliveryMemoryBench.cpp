// What a broadcaster's night asks of memory: a two-hour 5.1 programme conformed, and batched
// with its reports, a three-hour 7.1 programme through every stage of the chain, and a batch
// whose peak memory must be that of one file, not of all of them. Each run is a child
// `velmora-cli`; wall time and its peak resident memory come from ChildRun.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>
#include <vector>

#include "ChildRun.h"

namespace {

namespace fs = std::filesystem;
using velmora::bench::ChildRun;
using velmora::bench::runChild;
using velmora::bench::scratchFolder;
using velmora::bench::fullChainParams;
using velmora::bench::pinkNoiseWav;

// One generated programme of `seconds` mastered by a child velmora-cli with `options`, timed,
// with its peak memory.
void masterLongProgramme(benchmark::State& state, const char* folder, double seconds, int channels, bool swell,
                         std::vector<std::string> options) {
    const auto dir = scratchFolder(folder);
    if (!pinkNoiseWav(dir / "programme.wav", seconds, channels, channels, swell)) {
        state.SkipWithError("could not generate the programme");
        return;
    }
    std::vector<std::string> args{VELMORA_CLI_PATH, "master", (dir / "programme.wav").string(), "-o",
                                  (dir / "out").string() + "/", "--norm", "0"};
    for (auto& o : options) args.push_back(o == "@params" ? fullChainParams(dir).string() : o);
    ChildRun run;
    for (auto _ : state) {
        run = runChild(args, (dir / "stderr.txt").string());
        if (run.status != 0) {
            state.SkipWithError("velmora-cli master failed");
            break;
        }
        state.SetIterationTime(run.seconds);
        fs::remove_all(dir / "out");
    }
    state.counters["peak_rss_GB"] = run.peakRssBytes / 1e9;
    state.counters["decoded_GB"] = seconds * 48000 * channels * 4 / 1e9;
    state.counters["x_realtime"] = benchmark::Counter(seconds * double(state.iterations()), benchmark::Counter::kIsRate);
    fs::remove_all(dir);
}

// Conform mode streams from the file: its memory does not grow with the programme.
void BM_VelmoraFilmConform(benchmark::State& state) {
    masterLongProgramme(state, "velmora-bench-film", 7200.0, 6, false, {"--mode", "conform"});
}

// Every stage on, each pass rendered again from the file: its memory does not grow with the
// programme either.
void BM_VelmoraEpicMasterChain(benchmark::State& state) {
    masterLongProgramme(state, "velmora-bench-epic", 10800.0, 8, true, {"--mode", "master", "--params", "@params"});
}

// What a delivery night of one film asks: the batch analyses the film (measurement, overview,
// energies while decoding), conforms it and writes both reports beside the master.
void BM_VelmoraFilmBatchWithReports(benchmark::State& state) {
    const auto dir = scratchFolder("velmora-bench-film-batch");
    if (!pinkNoiseWav(dir / "film.wav", 7200.0, 6, 6)) {
        state.SkipWithError("could not generate the film");
        return;
    }
    ChildRun run;
    for (auto _ : state) {
        run = runChild({VELMORA_CLI_PATH, "batch", (dir / "film.wav").string(), "-o", (dir / "out").string(), "--mode",
                        "conform", "--txt", "--pdf"},
                       (dir / "stderr.txt").string());
        if (run.status != 0) {
            state.SkipWithError("velmora-cli batch failed");
            break;
        }
        state.SetIterationTime(run.seconds);
        fs::remove_all(dir / "out");
    }
    state.counters["peak_rss_MB"] = run.peakRssBytes / 1e6;
    fs::remove_all(dir);
}

// Twenty 3-minute stereo files: the batch's peak memory beside that of a batch of one.
void BM_VelmoraBatchMemory(benchmark::State& state) {
    const auto dir = scratchFolder("velmora-bench-batch-memory");
    fs::create_directories(dir / "all");
    for (int i = 0; i < 20; ++i) {
        // Appended piece by piece: GCC 12 warns falsely about "p" + std::to_string(i).
        std::string name = "p";
        name += std::to_string(i);
        name += ".wav";
        if (!pinkNoiseWav(dir / "all" / name, 180.0, 2, i + 1)) {
            state.SkipWithError("could not generate the batch");
            return;
        }
    }
    fs::create_directories(dir / "one");
    fs::copy_file(dir / "all" / "p0.wav", dir / "one" / "p0.wav");
    ChildRun one, all;
    for (auto _ : state) {
        one = runChild({VELMORA_CLI_PATH, "batch", (dir / "one").string(), "-o", (dir / "out1").string(), "--mode",
                        "conform"});
        all = runChild({VELMORA_CLI_PATH, "batch", (dir / "all").string(), "-o", (dir / "out20").string(), "--mode",
                        "conform"});
        if (one.status != 0 || all.status != 0) {
            state.SkipWithError("velmora-cli batch failed");
            break;
        }
        state.SetIterationTime(all.seconds);
        fs::remove_all(dir / "out1");
        fs::remove_all(dir / "out20");
    }
    state.counters["one_file_peak_GB"] = one.peakRssBytes / 1e9;
    state.counters["twenty_files_peak_GB"] = all.peakRssBytes / 1e9;
    fs::remove_all(dir);
}

}  // namespace

BENCHMARK(BM_VelmoraFilmConform)->Unit(benchmark::kSecond)->Iterations(1)->UseManualTime();
BENCHMARK(BM_VelmoraEpicMasterChain)->Unit(benchmark::kSecond)->Iterations(1)->UseManualTime();
BENCHMARK(BM_VelmoraFilmBatchWithReports)->Unit(benchmark::kSecond)->Iterations(1)->UseManualTime();
BENCHMARK(BM_VelmoraBatchMemory)->Unit(benchmark::kSecond)->Iterations(1)->UseManualTime();
