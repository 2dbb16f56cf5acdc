#pragma once
// Runs a command as a child process and reads its wall time and its peak resident memory (its
// high-water mark, read while it runs), so each measured run is a whole program as a user
// starts it.
#include <filesystem>
#include <string>
#include <vector>

namespace velmora::bench {

struct ChildRun {
    int status = -1;
    double seconds = 0;
    double peakRssBytes = 0;
};

// stdout goes to /dev/null; stderr to errPath when given, else to /dev/null.
ChildRun runChild(const std::vector<std::string>& args, const std::string& errPath = {});

// A fresh, empty folder of that name in the temp folder.
std::filesystem::path scratchFolder(const char* name);

// Reads the file once, so a timed run starts with it in the page cache.
void warmCache(const std::filesystem::path& file);

// A chain with every stage on, at settings an engineer might leave on a whole programme, as a
// `--params` file in `dir`.
std::filesystem::path fullChainParams(const std::filesystem::path& dir);

// Pink noise, one seed per file, written by ffmpeg as 48 kHz 24-bit WAV (RF64 past 4 GB):
// realistic enough for memory and speed, and it costs no memory in this process. `swell` makes
// the level rise and fall by several dB over minutes, so the loudness-range stage has work to
// do. 1, 2, 6 (5.1) or 8 channels.
bool pinkNoiseWav(const std::filesystem::path& file, double seconds, int channels, int seed, bool swell = false);

// This process's resident memory now, in bytes (VmRSS).
double residentBytes();

}  // namespace velmora::bench
