// Listening to a feature film read from its file: how long play and a seek take to give the
// first sound, and what the process's resident memory does meanwhile. The film (two hours of
// 5.1 at 48 kHz in 24 bits, 6 GB, RF64) is made once and kept under the build folder; it is
// opt-in: --benchmark_filter=FilmListening. VELMORA_FILM_MINUTES makes a shorter one.
//
// The render side is the real one (the streamer pulling blocks of 256 frames); it is called
// every millisecond instead of at the device's pace, so a seek's first sound is timed to the
// millisecond and the film goes by faster than it plays. The command line's peak memory is read
// from a child velmora-cli playing the film's last seconds to a private dummy JACK server.
#include <benchmark/benchmark.h>
#include <sndfile.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ChildRun.h"
#include "audio/ListeningStream.h"
#include "mastering/OnlineMasteringStreamer.h"
#include "rig/JackRig.h"

namespace {

using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr int filmRate = 48000, filmChannels = 6;

double filmMinutes() {
    const char* text = std::getenv("VELMORA_FILM_MINUTES");
    const double minutes = text ? std::atof(text) : 0.0;
    return minutes > 0 ? minutes : 120.0;
}

// The film, written once: a few tones and noise per channel, so that the fold and the
// conversion work on real signal. Empty when it cannot be written.
fs::path film() {
    const double minutes = filmMinutes();
    const auto frames = std::int64_t(minutes * 60 * filmRate);
    const fs::path path = fs::path(VELMORA_BENCH_DATA_DIR) / ("film-" + std::to_string(int(minutes)) + "min-5.1-48k-24.wav");
    const fs::path done = path.string() + ".complete";
    if (fs::exists(done)) return path;
    fs::create_directories(path.parent_path());
    SF_INFO info{};
    info.samplerate = filmRate;
    info.channels = filmChannels;
    info.format = SF_FORMAT_RF64 | SF_FORMAT_PCM_24;
    SNDFILE* out = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!out) return {};
    // RF64 only once it passes 4 GB, a plain RIFF header below.
    sf_command(out, SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
    std::minstd_rand noise(7);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    constexpr std::int64_t block = 48000;
    std::vector<float> interleaved(std::size_t(block) * filmChannels);
    for (std::int64_t at = 0; at < frames; at += block) {
        const std::int64_t n = std::min(block, frames - at);
        for (std::int64_t i = 0; i < n; ++i) {
            const double t = double(at + i) / filmRate;
            for (int c = 0; c < filmChannels; ++c)
                interleaved[std::size_t(i * filmChannels + c)] =
                    float(0.2 * std::sin(2 * M_PI * (110.0 * (c + 1)) * t) * (0.6 + 0.4 * std::sin(0.1 * t + c))) +
                    0.02f * uniform(noise);
        }
        if (sf_writef_float(out, interleaved.data(), n) != n) {
            sf_close(out);
            return {};
        }
    }
    sf_close(out);
    std::ofstream(done) << frames << '\n';
    return path;
}

double residentBytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::atof(line.c_str() + 6) * 1024.0;
    return 0;
}

// Calls the render side every millisecond until it delivers: the time since `from`.
double untilSound(velmora::OnlineMasteringStreamer& s, Clock::time_point from) {
    std::vector<float> l(256), r(256);
    for (;;) {
        const auto block = s.stream()->read(256, l.data(), r.data());
        if (block.frames > 0) return std::chrono::duration<double>(Clock::now() - from).count();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// Play, then seeks all over the film; device at `deviceRate` (44.1 kHz: through the converter).
void filmListening(benchmark::State& state, double deviceRate) {
    // Six gigabytes to write the first time: only when asked for by name.
    if (benchmark::GetBenchmarkFilter().find("FilmListening") == std::string::npos) {
        state.SkipWithError("opt-in: --benchmark_filter=FilmListening");
        return;
    }
    const fs::path path = film();
    if (path.empty()) {
        state.SkipWithError("cannot write the film under the build folder");
        return;
    }
    velmora::bench::warmCache(path);
    const auto frames = std::size_t(filmMinutes() * 60 * filmRate);
    const velmora::StreamShape shape{path.string(), false, filmChannels, frames, filmRate};
    const double before = residentBytes();
    double firstPlay = 0, worstSeek = 0, seekSum = 0, peak = before;
    int seeks = 0;
    std::minstd_rand where(11);
    for (auto _ : state) {
        const auto pressed = Clock::now();
        auto s = std::make_shared<velmora::OnlineMasteringStreamer>();
        s->init(std::make_shared<velmora::ListeningStream>(shape, deviceRate));
        firstPlay = untilSound(*s, pressed);
        std::vector<float> l(256), r(256);
        for (int k = 0; k < 30; ++k) {
            // A few seconds of playing between seeks, faster than real time.
            for (int b = 0; b < 400; ++b) {
                s->render(256, l.data(), r.data());
                if (b % 4 == 0) std::this_thread::sleep_for(std::chrono::microseconds(500));
            }
            peak = std::max(peak, residentBytes());
            const auto asked = Clock::now();
            s->seek(std::uniform_real_distribution<double>(0.0, 1.0)(where));
            const double took = untilSound(*s, asked);
            worstSeek = std::max(worstSeek, took);
            seekSum += took;
            ++seeks;
        }
        peak = std::max(peak, residentBytes());
    }
    state.counters["first_sound_after_play_ms"] = firstPlay * 1e3;
    state.counters["first_sound_after_seek_mean_ms"] = seeks ? seekSum / seeks * 1e3 : 0.0;
    state.counters["first_sound_after_seek_worst_ms"] = worstSeek * 1e3;
    state.counters["rss_growth_mb"] = (peak - before) / 1e6;
    state.counters["rss_mb"] = peak / 1e6;
    state.counters["film_gb"] = double(fs::file_size(path)) / 1e9;
}

// velmora-cli playing the film's last seconds to a private dummy JACK server, as a child: its
// peak resident memory is the whole program's, decoder and output included.
void BM_FilmListeningCliPeakMemory(benchmark::State& state) {
    if (benchmark::GetBenchmarkFilter().find("FilmListening") == std::string::npos) {
        state.SkipWithError("opt-in: --benchmark_filter=FilmListening");
        return;
    }
    const fs::path path = film();
    velmora::rig::PrivateJackServer server({filmRate});
    if (path.empty() || !server.running()) {
        state.SkipWithError(path.empty() ? "cannot write the film" : "jackd -d dummy did not start");
        return;
    }
    setenv("JACK_DEFAULT_SERVER", server.name().c_str(), 1);
    velmora::bench::ChildRun run;
    const double seconds = filmMinutes() * 60;
    const double from = 1.0 - 4.0 / seconds;  // the last four seconds
    for (auto _ : state) {
        run = velmora::bench::runChild({VELMORA_CLI_PATH, "play", path.string(), "--seek", std::to_string(from)});
        state.SetIterationTime(run.seconds);
        if (run.status != 0) state.SkipWithError("velmora-cli play failed");
    }
    unsetenv("JACK_DEFAULT_SERVER");
    state.counters["peak_rss_MB"] = run.peakRssBytes / 1e6;
    state.counters["film_gb"] = double(fs::file_size(path)) / 1e9;
}

void BM_FilmListeningAtItsRate(benchmark::State& state) { filmListening(state, 48000); }
void BM_FilmListeningConverted(benchmark::State& state) { filmListening(state, 44100); }

}  // namespace

BENCHMARK(BM_FilmListeningCliPeakMemory)->Iterations(1)->Unit(benchmark::kSecond)->UseManualTime();
BENCHMARK(BM_FilmListeningAtItsRate)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(BM_FilmListeningConverted)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
