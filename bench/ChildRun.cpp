#include "ChildRun.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <fstream>
#include <vector>

extern char** environ;

namespace velmora::bench {

namespace {

// A "VmXXX:" field of a process's status, in bytes; 0 when it cannot be read.
double statusBytes(const std::string& statusPath, const std::string& field) {
    std::ifstream status(statusPath);
    for (std::string line; std::getline(status, line);)
        if (line.rfind(field, 0) == 0) return std::atof(line.c_str() + field.size()) * 1024.0;
    return 0.0;
}

double highWaterBytes(const std::string& statusPath) { return statusBytes(statusPath, "VmHWM:"); }

}  // namespace

ChildRun runChild(const std::vector<std::string>& args, const std::string& errPath) {
    std::vector<char*> argv;
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errPath.empty() ? "/dev/null" : errPath.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ChildRun run;
    const auto t0 = std::chrono::steady_clock::now();
    pid_t pid = 0;
    if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
        // wait4's ru_maxrss would also count this process's own memory (the child shares it until
        // exec): the child's high-water mark is read from /proc while it runs instead. It only
        // rises, so a late reading misses at most a peak reached in the last few milliseconds.
        const std::string statusPath = "/proc/" + std::to_string(pid) + "/status";
        int status = 0;
        for (;;) {
            run.peakRssBytes = std::max(run.peakRssBytes, highWaterBytes(statusPath));
            const pid_t done = waitpid(pid, &status, WNOHANG);
            if (done == pid) {
                run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
                break;
            }
            if (done < 0) break;
            usleep(10000);
        }
    }
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    posix_spawn_file_actions_destroy(&actions);
    return run;
}

std::filesystem::path scratchFolder(const char* name) {
    auto dir = std::filesystem::temp_directory_path() / name;
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    return dir;
}

void warmCache(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::vector<char> buf(1 << 20);
    while (in.read(buf.data(), std::streamsize(buf.size()))) {
    }
}

double residentBytes() { return statusBytes("/proc/self/status", "VmRSS:"); }

bool pinkNoiseWav(const std::filesystem::path& file, double seconds, int channels, int seed, bool swell) {
    std::string source = "anoisesrc=d=" + std::to_string(seconds) + ":c=pink:r=48000:a=0.2:s=" + std::to_string(seed);
    if (swell) source += ",volume='0.55+0.45*sin(2*PI*t/97)':eval=frame";
    std::vector<std::string> args{"ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i", source};
    if (channels == 6) {
        args.insert(args.end(), {"-filter_complex",
                                 "[0]asplit=6[a][b][c][d][e][f];[a][b][c][d][e][f]join=inputs=6:channel_layout=5.1[o]",
                                 "-map", "[o]"});
    } else {
        args.insert(args.end(), {"-ac", std::to_string(channels)});
    }
    args.insert(args.end(), {"-c:a", "pcm_s24le", "-rf64", "auto", file.string()});
    return runChild(args).status == 0;
}

std::filesystem::path fullChainParams(const std::filesystem::path& dir) {
    const auto path = dir / "full-chain.json";
    std::ofstream(path) << R"({"eqOn":true,"hpfOn":true,"hpfFreq":40,"lsGain":1.5,"lsFreq":120,)"
                           R"("b1Freq":400,"b1Gain":-1.5,"b1Q":1.0,"b2Freq":3000,"b2Gain":1.0,"b2Q":1.0,)"
                           R"("hsGain":2.0,"hsFreq":8000,"compOn":true,"compThreshold":-24,"compRatio":2.5,)"
                           R"("compAttack":10,"compRelease":200,"compMakeup":2,"lraOn":true,"lraTarget":8,)"
                           R"("msOn":true,"midGain":0.5,"sideGain":-1.0,"teqOn":true,"tLsGain":1.0,"tLsFreq":100,)"
                           R"("tMidGain":-0.5,"tMidFreq":1000,"tMidQ":0.7,"tHsGain":1.5,"tHsFreq":10000,)"
                           R"("autoProtectComp":true,"autoProtectThresholdDB":1.5,"lraIterative":true})";
    return path;
}

}  // namespace velmora::bench
