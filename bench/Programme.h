#pragma once
// Generated test programme for the benchmarks: pink-like noise under a slow level envelope
// with stretches of digital silence, so gating, LRA and the maxima all have work to do.
#include <cstddef>
#include <filesystem>
#include <vector>

namespace velmora::bench {

// Stereo, 48 kHz; generated once per process and shared by every benchmark.
const std::vector<std::vector<float>>& programme(double minutes = 60.0);

// The same programme written once as a 24-bit stereo WAV in the temp folder.
const std::filesystem::path& programmeWav24(double minutes = 60.0);

}  // namespace velmora::bench
