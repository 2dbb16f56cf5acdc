// Xruns of live mastering on a private dummy JACK server at 64 frames per period (1.3 ms at
// 48 kHz): the ten-minute programme, read from its file as it plays, through every real-time stage (eight bands, the bus
// compressor, the meter) to the server's playback ports, while the main thread changes the
// parameters 50 times a second, as a hand on a control does. Ten minutes of wall time, or
// VELMORA_XRUN_SECONDS. A separate client counts the xruns the server reports; the render
// callback is timed around the streamer, for its share of the wall clock and its worst block.
// Without real-time scheduling a busy machine makes the server late on its own: the same
// route rendering silence is watched first, for a tenth of the run (a minute at most), so the
// two rates can be told apart. VELMORA_XRUN_REALTIME=1 runs the server with real-time
// scheduling instead, where the machine grants it.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <numbers>
#include <string>
#include <thread>

#include "Programme.h"
#include "audio/ListeningStream.h"
#include "audio/LiveMonitor.h"
#include "mastering/LiveMeter.h"
#include "mastering/OnlineMasteringStreamer.h"
#include "rig/JackRig.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int rate = 48000, periodFrames = 64;
constexpr auto updatePeriod = std::chrono::milliseconds(20);

double runSeconds() {
    const char* text = std::getenv("VELMORA_XRUN_SECONDS");
    const double seconds = text ? std::atof(text) : 0.0;
    return seconds > 0 ? seconds : 600.0;
}

// Wall time around each render: without real-time scheduling the worst block also holds
// whatever time the thread spent preempted inside it.
class TimedSource final : public velmora::RenderSource {
public:
    explicit TimedSource(std::shared_ptr<velmora::OnlineMasteringStreamer> streamer) : streamer_(std::move(streamer)) {}
    void render(std::size_t frames, float* left, float* right) noexcept override {
        const auto start = Clock::now();
        streamer_->render(frames, left, right);
        const std::int64_t ns = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - start).count();
        busyNs_.fetch_add(ns, std::memory_order_relaxed);
        for (std::int64_t worst = worstNs_.load(std::memory_order_relaxed);
             ns > worst && !worstNs_.compare_exchange_weak(worst, ns, std::memory_order_relaxed);) {
        }
    }
    std::int64_t busyNs() const { return busyNs_.load(); }
    std::int64_t worstNs() const { return worstNs_.load(); }

private:
    std::shared_ptr<velmora::OnlineMasteringStreamer> streamer_;
    std::atomic<std::int64_t> busyNs_{0}, worstNs_{0};
};

// Every real-time stage on, each gain kept away from 0 dB so that all eight sections stay in
// the cascade, and each moving a little at every call: no two consecutive sets are the same.
velmora::MasterParams movingChain(double t) {
    const auto wobble = [t](double hz) { return std::sin(2 * std::numbers::pi * hz * t); };
    velmora::MasterParams p;
    p.eqOn = p.hpfOn = p.compOn = p.teqOn = true;
    p.lsGain = 2 + wobble(0.11), p.b1Gain = -3 + wobble(0.13), p.b2Gain = 4 + wobble(0.17), p.hsGain = 1.5 + wobble(0.19);
    p.b1Freq = 400 * (1 + 0.5 * wobble(0.07));
    p.tLsGain = 1 + 0.5 * wobble(0.23), p.tMidGain = -2 + wobble(0.29), p.tHsGain = 2 + wobble(0.31);
    p.compThreshold = -40 + 10 * wobble(0.05), p.compRatio = 3;
    return p;
}

void BM_XrunsOnDummyJack64(benchmark::State& state) {
    const char* realtime = std::getenv("VELMORA_XRUN_REALTIME");
    velmora::rig::PrivateJackServer server({rate, periodFrames, false, realtime && std::string(realtime) == "1"});
    if (!server.running()) {
        state.SkipWithError("jackd -d dummy did not start");
        return;
    }
    state.SetLabel(server.command());
    // libjack finds the server by this name, for the monitor's client too.
    setenv("JACK_DEFAULT_SERVER", server.name().c_str(), 1);
    velmora::rig::ProbeClient watch(server.name(), "xrun-watch", 0, 0);
    const auto& file = velmora::bench::programmeWav24(10.0);
    const std::size_t frames = velmora::bench::programme(10.0)[0].size();
    const double seconds = runSeconds();

    int xruns = 0, idleXruns = 0;
    std::int64_t updates = 0;
    double idleSeconds = 0, wallSeconds = 0, busySeconds = 0, worstSeconds = 0;
    for (auto _ : state) {
        velmora::LiveMonitor monitor(velmora::OutputBackendKind::jack);
        if (!watch.open() || monitor.configure("JACK:system", 0, 1)) {
            state.SkipWithError("cannot route to the dummy server's playback ports");
            break;
        }
        // Routed, nothing started: the client renders silence.
        const int idleBefore = watch.xruns();
        const auto idleStart = Clock::now();
        std::this_thread::sleep_for(std::chrono::duration<double>(std::min(seconds / 10, 60.0)));
        idleXruns = watch.xruns() - idleBefore;
        idleSeconds = std::chrono::duration<double>(Clock::now() - idleStart).count();

        // Read from the file as it plays, as live mastering does: the decoding thread runs
        // beside the render callback.
        auto streamer = std::make_shared<velmora::OnlineMasteringStreamer>();
        streamer->init(std::make_shared<velmora::ListeningStream>(
            velmora::StreamShape{file.string(), false, 2, frames, double(rate)}, monitor.deviceSampleRate(), 0, true));
        streamer->update(movingChain(0), 0.0);
        auto meter = std::make_shared<velmora::LiveMeter>();
        meter->init(streamer->renderRate());
        streamer->setLiveMeter(meter);
        auto timed = std::make_shared<TimedSource>(streamer);

        const int xrunsBefore = watch.xruns();
        const auto start = Clock::now();
        if (!monitor.start(timed)) {
            state.SkipWithError(monitor.lastError().value_or("start failed").c_str());
            break;
        }
        const auto end = start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
        for (auto next = start + updatePeriod; next < end && monitor.isPlaying(); next += updatePeriod) {
            std::this_thread::sleep_until(next);
            streamer->update(movingChain(std::chrono::duration<double>(next - start).count()), 0.0);
            ++updates;
            benchmark::DoNotOptimize(meter->stats());
        }
        const bool stillPlaying = monitor.isPlaying();
        monitor.stop();
        wallSeconds = std::chrono::duration<double>(Clock::now() - start).count();
        xruns = watch.xruns() - xrunsBefore;
        busySeconds = double(timed->busyNs()) * 1e-9;
        worstSeconds = double(timed->worstNs()) * 1e-9;
        if (!stillPlaying) state.SkipWithError(monitor.lastError().value_or("playback stopped").c_str());
    }
    unsetenv("JACK_DEFAULT_SERVER");

    state.counters["xruns"] = xruns;
    state.counters["silent_route_xruns_per_min"] = idleSeconds > 0 ? idleXruns * 60 / idleSeconds : 0.0;
    state.counters["xruns_per_min"] = wallSeconds > 0 ? xruns * 60 / wallSeconds : 0.0;
    state.counters["parameter_changes"] = double(updates);
    state.counters["seconds_played"] = wallSeconds;
    state.counters["render_core_percent"] = wallSeconds > 0 ? 100.0 * busySeconds / wallSeconds : 0.0;
    state.counters["worst_block_us"] = worstSeconds * 1e6;
    state.counters["period_us"] = periodFrames * 1e6 / rate;
}

}  // namespace

BENCHMARK(BM_XrunsOnDummyJack64)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
