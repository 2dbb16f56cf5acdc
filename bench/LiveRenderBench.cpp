// The live render callback's cost: one 64-frame block at 48 kHz through every real-time stage
// (eight bands, the bus compressor, the meter), alone and as a share of the block's duration; and
// the same with the A/B switch on the source side, or crossing over in every block.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "Programme.h"
#include "mastering/LiveMeter.h"
#include "mastering/OnlineMasteringStreamer.h"

namespace {

constexpr std::size_t blockFrames = 64;
constexpr double rate = 48000.0;

// abMode 0: the chain's output heard; 1: the source heard (the chain still runs); 2: flipped
// every 24 blocks, so that most blocks are inside a 25 ms crossfade.
void liveRenderBlock(benchmark::State& state, int abMode) {
    // Ten minutes of the generated programme, with a threshold low enough that the compressor
    // reduces (and so takes its exponential) on nearly every frame: the dearest case.
    const auto& source = velmora::bench::programme(10.0);
    velmora::MasterParams p;
    p.eqOn = p.hpfOn = p.compOn = true;
    p.lsGain = 2, p.b1Gain = -3, p.b2Gain = 4, p.hsGain = 1.5;
    p.tLsGain = 1, p.tMidGain = -2, p.tHsGain = 2;
    p.compThreshold = -50, p.compRatio = 3;
    velmora::OnlineMasteringStreamer streamer;
    streamer.init(source, rate, rate);
    streamer.update(p, 0.0);
    streamer.setSourceGain(-3.2);
    streamer.setSourceHeard(abMode == 1);
    auto meter = std::make_shared<velmora::LiveMeter>();
    meter->init(rate);
    streamer.setLiveMeter(meter);

    std::vector<float> left(blockFrames), right(blockFrames);
    double spent = 0;  // seconds
    std::int64_t block = 0;
    for (auto _ : state) {
        if (abMode == 2 && ++block % 24 == 0) streamer.setSourceHeard(!streamer.sourceHeard());
        const auto start = std::chrono::steady_clock::now();
        streamer.render(blockFrames, left.data(), right.data());
        benchmark::DoNotOptimize(left.data());
        benchmark::DoNotOptimize(right.data());
        benchmark::ClobberMemory();
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(seconds);
        spent += seconds;
    }
    // Time spent over the duration of the audio rendered: the share of one core the callback takes.
    state.counters["core_percent"] = 100.0 * spent / (double(state.iterations()) * blockFrames / rate);
    state.counters["momentary_LUFS"] = meter->stats().momentary;
}

void BM_LiveRenderBlock(benchmark::State& state) { liveRenderBlock(state, 0); }
void BM_LiveRenderBlockAB(benchmark::State& state) { liveRenderBlock(state, int(state.range(0))); }

}  // namespace

BENCHMARK(BM_LiveRenderBlock)->Unit(benchmark::kNanosecond)->MinTime(2.0)->UseManualTime();
BENCHMARK(BM_LiveRenderBlockAB)->Arg(1)->Arg(2)->Unit(benchmark::kNanosecond)->MinTime(2.0)->UseManualTime();
