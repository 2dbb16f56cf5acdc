// The whole `velmora-cli analyse` of a one-hour 24-bit stereo WAV (decode, measure, norms)
// against the reference peer's loudness filter over the same file, same cache state.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>

#include "ChildRun.h"
#include "Programme.h"
#include "measurement/FileAnalysis.h"

namespace {

std::string quoted(const std::string& s) { return "'" + s + "'"; }


void timeCommand(benchmark::State& state, const std::string& command) {
    const auto& wav = velmora::bench::programmeWav24();
    velmora::bench::warmCache(wav);
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        const int rc = std::system(command.c_str());
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        if (rc != 0) state.SkipWithError(("command failed: " + command).c_str());
        state.SetIterationTime(seconds);
    }
    state.SetItemsProcessed(std::int64_t(state.iterations()) * 3600 * 48000);
}

void BM_VelmoraAnalyseWav(benchmark::State& state) {
    const auto& wav = velmora::bench::programmeWav24();
    timeCommand(state, std::string(VELMORA_CLI_PATH) + " analyse " + quoted(wav.string()) + " >/dev/null");
}

void BM_PeerFilterWav(benchmark::State& state) {
    const auto& wav = velmora::bench::programmeWav24();
    timeCommand(state, "ffmpeg -nostdin -hide_banner -loglevel error -i " + quoted(wav.string()) +
                           " -af ebur128=peak=true -f null - >/dev/null 2>&1");
}

// The analysis the window and the batch run on each file, in this process: decoding, the
// measurement and the channel energies, with (1) and without (0) the waveform and spectrum
// computed on the decoding thread meanwhile. Their difference is what the overview costs now
// that it no longer reads a held programme.
void BM_VelmoraFileAnalysis(benchmark::State& state) {
    const auto& wav = velmora::bench::programmeWav24();
    velmora::bench::warmCache(wav);
    velmora::AnalysisSettings settings;
    settings.channelEnergies = true;
    settings.overview = state.range(0) != 0;
    for (auto _ : state) {
        auto a = velmora::analyseFile(wav.string(), settings);
        if (!a) state.SkipWithError("analysis failed");
        benchmark::DoNotOptimize(a);
    }
    state.SetItemsProcessed(std::int64_t(state.iterations()) * 3600 * 48000);
}

}  // namespace

BENCHMARK(BM_VelmoraFileAnalysis)->Arg(0)->Arg(1)->Unit(benchmark::kSecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_VelmoraAnalyseWav)->Unit(benchmark::kSecond)->Iterations(3)->UseManualTime();
BENCHMARK(BM_PeerFilterWav)->Unit(benchmark::kSecond)->Iterations(1)->UseManualTime();
