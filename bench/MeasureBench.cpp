// The full measurement (I, LRA, fine M/S maxima, true peak) of one hour of stereo, against
// the reference peer measuring the same buffer in the same run.
#include <benchmark/benchmark.h>
#include <ebur128.h>

#include <algorithm>
#include <cmath>

#include "Programme.h"
#include "measurement/LoudnessEngine.h"

namespace {

void BM_VelmoraMeasure(benchmark::State& state) {
    const auto& p = velmora::bench::programme();
    const std::vector<double> weights{1.0, 1.0};
    velmora::LoudnessResult r;
    for (auto _ : state) {
        r = velmora::LoudnessEngine::measure(p, weights, 48000.0);
        benchmark::DoNotOptimize(r);
    }
    state.SetItemsProcessed(std::int64_t(state.iterations()) * std::int64_t(p[0].size()));
    state.counters["I"] = r.integratedLUFS;
    state.counters["LRA"] = r.loudnessRange.value_or(NAN);
    state.counters["Mmax"] = r.momentaryMax;
    state.counters["Smax"] = r.shortTermMax;
    state.counters["TP"] = r.truePeakDB;
}

void BM_PeerMeasure(benchmark::State& state) {
    const auto& p = velmora::bench::programme();
    const std::size_t frames = p[0].size();
    std::vector<float> interleaved(frames * 2);
    for (std::size_t i = 0; i < frames; ++i) {
        interleaved[2 * i] = p[0][i];
        interleaved[2 * i + 1] = p[1][i];
    }
    double I = 0, lra = 0, mMax = -HUGE_VAL, sMax = -HUGE_VAL, tp = 0;
    for (auto _ : state) {
        ebur128_state* st = ebur128_init(2, 48000, EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_M |
                                                       EBUR128_MODE_S | EBUR128_MODE_TRUE_PEAK);
        constexpr std::size_t hop = 4800;  // read M and S every 100 ms
        mMax = sMax = -HUGE_VAL;
        for (std::size_t pos = 0; pos < frames; pos += hop) {
            ebur128_add_frames_float(st, interleaved.data() + 2 * pos, std::min(hop, frames - pos));
            double m, s;
            if (ebur128_loudness_momentary(st, &m) == EBUR128_SUCCESS) mMax = std::max(mMax, m);
            if (ebur128_loudness_shortterm(st, &s) == EBUR128_SUCCESS) sMax = std::max(sMax, s);
        }
        ebur128_loudness_global(st, &I);
        ebur128_loudness_range(st, &lra);
        double p0, p1;
        ebur128_true_peak(st, 0, &p0);
        ebur128_true_peak(st, 1, &p1);
        tp = 20 * std::log10(std::max(p0, p1));
        ebur128_destroy(&st);
    }
    state.SetItemsProcessed(std::int64_t(state.iterations()) * std::int64_t(frames));
    state.counters["I"] = I;
    state.counters["LRA"] = lra;
    state.counters["Mmax"] = mMax;
    state.counters["Smax"] = sMax;
    state.counters["TP"] = tp;
}

}  // namespace

BENCHMARK(BM_VelmoraMeasure)->Unit(benchmark::kMillisecond)->MinTime(5.0)->UseRealTime();
BENCHMARK(BM_PeerMeasure)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
