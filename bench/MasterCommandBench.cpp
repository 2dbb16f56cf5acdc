// The whole `velmora-cli master` of a one-hour 24-bit stereo WAV (decode, measurement before,
// conformance, true-peak check, write, measurement after), in conform mode and with every
// stage of the chain on, against the reference peer's two-pass loudness normalisation of the
// same file in the same run, with each child's peak resident memory.
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ChildRun.h"
#include "Programme.h"

namespace {

namespace fs = std::filesystem;
using velmora::bench::runChild;
using velmora::bench::scratchFolder;
using velmora::bench::fullChainParams;
using velmora::bench::warmCache;

// The text value of "key" in the peer's flat JSON printout ("input_i" : "-27.61"); empty if absent.
std::string jsonText(const std::string& json, const std::string& key) {
    auto at = json.find('"' + key + '"');
    if (at == std::string::npos) return {};
    at = json.find(':', at);
    const auto open = at == std::string::npos ? at : json.find('"', at);
    const auto close = open == std::string::npos ? open : json.find('"', open + 1);
    return close == std::string::npos ? std::string() : json.substr(open + 1, close - open - 1);
}


constexpr std::int64_t kFrames = 3600LL * 48000;
constexpr double kProgrammeSeconds = 3600.0;
// The decoded programme as the application holds it: two channels of 32-bit floats.
constexpr double kDecodedBytes = double(kFrames) * 2 * sizeof(float);



void timeMaster(benchmark::State& state, std::vector<std::string> extra) {
    const auto& wav = velmora::bench::programmeWav24();
    warmCache(wav);
    const auto dir = scratchFolder("velmora-bench-master");
    std::vector<std::string> args{VELMORA_CLI_PATH, "master", wav.string(), "-o", (dir / "out.wav").string()};
    for (auto& e : extra) args.push_back(e == "@params" ? fullChainParams(dir).string() : e);
    double peakRss = 0;
    for (auto _ : state) {
        const auto run = runChild(args);
        if (run.status != 0) {
            state.SkipWithError("velmora-cli master failed");
            break;
        }
        peakRss = std::max(peakRss, run.peakRssBytes);
        state.SetIterationTime(run.seconds);
        fs::remove(dir / "out.wav");
    }
    state.SetItemsProcessed(std::int64_t(state.iterations()) * kFrames);
    state.counters["peak_rss_GB"] = peakRss / 1e9;
    state.counters["rss_per_decoded"] = peakRss / kDecodedBytes;
    state.counters["x_realtime"] = benchmark::Counter(double(state.iterations()) * kProgrammeSeconds,
                                                      benchmark::Counter::kIsRate);
    fs::remove_all(dir);
}

void BM_VelmoraMasterConform(benchmark::State& state) { timeMaster(state, {"--mode", "conform"}); }

void BM_VelmoraMasterFullChain(benchmark::State& state) {
    timeMaster(state, {"--mode", "master", "--params", "@params"});
}

// The peer's documented two-pass use: measure, then normalise linearly with the measured
// values, written as 24-bit at the source rate.
void BM_PeerLoudnormTwoPass(benchmark::State& state) {
    const auto& wav = velmora::bench::programmeWav24();
    warmCache(wav);
    const auto dir = scratchFolder("velmora-bench-peer");
    const auto log = (dir / "pass1.log").string();
    const std::string target = "I=-23:TP=-1:LRA=50";
    std::string mode;
    for (auto _ : state) {
        const auto pass1 = runChild({"ffmpeg", "-nostdin", "-hide_banner", "-i", wav.string(), "-af",
                                     "loudnorm=" + target + ":print_format=json", "-f", "null", "-"},
                                    log);
        std::stringstream text;
        text << std::ifstream(log).rdbuf();
        const std::string json = text.str();
        auto field = [&](const char* key) { return jsonText(json, key); };
        const auto i = field("input_i"), tp = field("input_tp"), lra = field("input_lra"),
                   thresh = field("input_thresh"), offset = field("target_offset");
        if (pass1.status != 0 || i.empty() || tp.empty() || lra.empty() || thresh.empty() || offset.empty()) {
            state.SkipWithError("peer first pass failed");
            break;
        }
        const auto pass2 = runChild({"ffmpeg", "-nostdin", "-hide_banner", "-y", "-i", wav.string(), "-af",
                                     "loudnorm=" + target + ":measured_I=" + i + ":measured_TP=" + tp +
                                         ":measured_LRA=" + lra + ":measured_thresh=" + thresh +
                                         ":offset=" + offset + ":linear=true:print_format=json",
                                     "-ar", "48000", "-c:a", "pcm_s24le", (dir / "out.wav").string()},
                                    log);
        if (pass2.status != 0) {
            state.SkipWithError("peer second pass failed");
            break;
        }
        std::stringstream second;
        second << std::ifstream(log).rdbuf();
        mode = jsonText(second.str(), "normalization_type");
        state.SetIterationTime(pass1.seconds + pass2.seconds);
        fs::remove(dir / "out.wav");
    }
    state.SetItemsProcessed(std::int64_t(state.iterations()) * kFrames);
    state.SetLabel(mode);
    fs::remove_all(dir);
}

}  // namespace

BENCHMARK(BM_VelmoraMasterConform)->Unit(benchmark::kSecond)->Iterations(2)->UseManualTime();
BENCHMARK(BM_VelmoraMasterFullChain)->Unit(benchmark::kSecond)->Iterations(1)->UseManualTime();
BENCHMARK(BM_PeerLoudnormTwoPass)->Unit(benchmark::kSecond)->Iterations(1)->UseManualTime();
