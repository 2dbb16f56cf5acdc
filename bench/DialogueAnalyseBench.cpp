// `velmora-cli analyse --gating dialog` of the one-hour 24-bit stereo programme against the same
// analysis in EBU mode, one after the other in the same run: what the speech detector adds to
// the time, and the peak memory of each (the detector keeps one flag per 30 ms, never the
// programme). Each run is a child process timed by ChildRun.
#include <benchmark/benchmark.h>

#include <string>

#include "ChildRun.h"
#include "Programme.h"

namespace {

void analyse(benchmark::State& state, const std::string& gating) {
    const auto& wav = velmora::bench::programmeWav24();
    velmora::bench::warmCache(wav);
    double peak = 0;
    for (auto _ : state) {
        const auto run = velmora::bench::runChild({VELMORA_CLI_PATH, "analyse", "--gating", gating, wav.string()});
        // An analysis without speech exits 1 (no dialogue measured): it still ran to the end.
        if (run.status != 0 && run.status != 1) state.SkipWithError("velmora-cli analyse failed");
        state.SetIterationTime(run.seconds);
        peak = std::max(peak, run.peakRssBytes);
    }
    state.counters["peakRSS_MB"] = peak / 1e6;
    state.SetItemsProcessed(std::int64_t(state.iterations()) * 3600 * 48000);
}

void BM_AnalyseEBU(benchmark::State& state) { analyse(state, "ebu"); }
void BM_AnalyseDialogue(benchmark::State& state) { analyse(state, "dialog"); }

}  // namespace

BENCHMARK(BM_AnalyseEBU)->Unit(benchmark::kSecond)->Iterations(2)->UseManualTime();
BENCHMARK(BM_AnalyseDialogue)->Unit(benchmark::kSecond)->Iterations(2)->UseManualTime();
