// Runs every benchmark, then prints Velmora's throughput against each peer measured in the
// same run, as the ratio that the speed targets are stated in.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const auto& r : runs) {
            if (r.error_occurred || r.run_type != Run::RT_Iteration) continue;
            auto it = r.counters.find("items_per_second");
            if (it != r.counters.end()) throughput_[r.benchmark_name()] = it->second.value;
            auto share = r.counters.find("core_percent");
            if (share != r.counters.end()) corePercent_[r.benchmark_name()] = {r.GetAdjustedRealTime(), share->second.value};
            seconds_[r.benchmark_name()] = r.GetAdjustedRealTime();  // in the run's time unit
            if (r.counters.count("xruns")) xrunRuns_.push_back(r);
            for (const char* name : {"first_paint_ms", "construct_ms", "longest_stall_ms", "analysis_longest_stall_ms",
                                     "redraw_core_percent", "frames_per_second"}) {
                auto c = r.counters.find(name);
                if (c != r.counters.end()) window_[r.benchmark_name()][name] = c->second.value;
            }
        }
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        ratio("BM_VelmoraMeasure/min_time:5.000/real_time", "BM_PeerMeasure/iterations:1/real_time",
              "measurement vs reference peer (target >= 8x)");
        ratio("BM_VelmoraAnalyseWav/iterations:3/manual_time", "BM_PeerFilterWav/iterations:1/manual_time",
              "velmora-cli analyse vs peer loudness filter (target >= 5x)");
        ratio("BM_VelmoraMasterConform/iterations:2/manual_time", "BM_PeerLoudnormTwoPass/iterations:1/manual_time",
              "velmora-cli master --mode conform vs peer two-pass (target >= 6x)");
        for (const auto& [name, figures] : corePercent_)
            std::printf("%s: %.2f us per 64-frame block at 48 kHz = %.3f%% of one core (target <= 2%%)\n", name.c_str(),
                        figures.first / 1000.0, figures.second);
        paintSummary();
        for (const auto& r : xrunRuns_) {
            const auto value = [&](const char* name) { return r.counters.at(name).value; };
            std::printf("live mastering on %s: %.0f xruns in %.0f s with %.0f parameter changes (goal 0), %.1f per "
                        "minute against %.1f per minute on the same route rendering silence; render callback %.2f%% "
                        "of the wall clock, worst block %.0f us of %.0f us\n",
                        r.report_label.c_str(), value("xruns"), value("seconds_played"), value("parameter_changes"),
                        value("xruns_per_min"), value("silent_route_xruns_per_min"), value("render_core_percent"),
                        value("worst_block_us"), value("period_us"));
        }
        windowSummary();
        auto batch = seconds_.find("BM_BatchWithReports/iterations:3/manual_time");
        auto bare = seconds_.find("BM_BatchRenderAndWriteOnly/iterations:3/manual_time");
        if (batch != seconds_.end() && bare != seconds_.end())
            std::printf("batch of 20 x 3 min with both reports: %.1f s (%.2f s per file); render and write alone %.1f s; "
                        "overhead %.1f%% (target < 15%%)\n",
                        batch->second, batch->second / 20, bare->second, 100.0 * (1.0 - bare->second / batch->second));
    }

private:
    // The studio components' paints run in microseconds; the window redraws its live parts 20
    // times a second, so each must stay under 1 ms.
    void paintSummary() {
        std::string slowest;
        double slowestUS = 0;
        int count = 0;
        for (const auto& [name, us] : seconds_) {
            if (name.rfind("BM_Paint", 0) != 0) continue;
            ++count;
            if (us > slowestUS) slowestUS = us, slowest = name;
        }
        if (count == 0) return;
        std::printf("studio component paints: %d, slowest %s at %.0f us (target < 1000 us each)%s\n", count,
                    slowest.c_str(), slowestUS, slowestUS < 1000 ? "" : "  ** OVER **");
    }

    // The main window: opening, stalls of the main thread, the live redraw.
    void windowSummary() {
        for (const auto& [name, c] : window_) {
            auto get = [&](const char* key) {
                auto it = c.find(key);
                return it == c.end() ? -1.0 : it->second;
            };
            if (name.rfind("BM_WindowOpen", 0) == 0)
                std::printf("window with 50 files: constructed in %.0f ms, first paint after %.0f ms (target < 1000 ms)\n",
                            get("construct_ms"), get("first_paint_ms"));
            if (name.rfind("BM_WindowLongestStall", 0) == 0)
                std::printf("main thread's longest stall: %.1f ms while 50 files are analysed, %.1f ms while they are "
                            "exported (target < 20 ms)\n",
                            get("analysis_longest_stall_ms"), get("longest_stall_ms"));
            if (name.rfind("BM_WindowLiveRedraw", 0) == 0)
                std::printf("%s: live redraw at %.1f frames/s costs %.2f%% of one core (target <= 5%%)\n", name.c_str(),
                            get("frames_per_second"), get("redraw_core_percent"));
        }
    }

    void ratio(const std::string& ours, const std::string& peer, const char* what) {
        auto a = throughput_.find(ours), b = throughput_.find(peer);
        if (a == throughput_.end() || b == throughput_.end()) return;
        std::printf("%-58s %8.1f M frames/s vs %8.1f M frames/s = %.1fx\n", what, a->second / 1e6, b->second / 1e6,
                    a->second / b->second);
    }
    std::map<std::string, double> throughput_;
    std::map<std::string, double> seconds_;
    std::map<std::string, std::pair<double, double>> corePercent_;
    std::vector<Run> xrunRuns_;
    std::map<std::string, std::map<std::string, double>> window_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
}
