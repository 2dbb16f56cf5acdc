#include "Programme.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <map>
#include <numbers>
#include <random>

namespace velmora::bench {

const std::vector<std::vector<float>>& programme(double minutes) {
    static std::map<double, std::vector<std::vector<float>>> cache;
    auto& buffer = cache[minutes];
    if (!buffer.empty()) return buffer;
    constexpr double fs = 48000.0;
    const auto frames = std::size_t(minutes * 60.0 * fs);
    buffer.assign(2, std::vector<float>(frames));
    std::mt19937 rng(20261123);
    std::uniform_real_distribution<float> white(-1.0f, 1.0f);
    for (std::size_t c = 0; c < 2; ++c) {
        // Three one-pole stages approximate a -3 dB/octave slope well enough for loudness work.
        double b0 = 0, b1 = 0, b2 = 0;
        for (std::size_t i = 0; i < frames; ++i) {
            const double w = white(rng);
            b0 = 0.99765 * b0 + w * 0.0990460;
            b1 = 0.96300 * b1 + w * 0.2965164;
            b2 = 0.57000 * b2 + w * 1.0526913;
            const double pink = (b0 + b1 + b2 + w * 0.1848) * 0.05;
            const double t = double(i) / fs;
            // About 25 dB of slow movement, and 2 s of silence every 90 s.
            const double envelopeDB = -12.5 + 12.5 * std::sin(2 * std::numbers::pi * t / 47.0) + 3.0 * std::sin(t / 3.1);
            const bool silent = std::fmod(t, 90.0) < 2.0;
            buffer[c][i] = silent ? 0.0f : float(pink * std::pow(10.0, envelopeDB / 20.0));
        }
    }
    return buffer;
}

const std::filesystem::path& programmeWav24(double minutes) {
    static std::map<double, std::filesystem::path> files;
    auto& path = files[minutes];
    if (!path.empty()) return path;
    path = std::filesystem::temp_directory_path() / ("velmora-bench-" + std::to_string(int(minutes)) + "min-24bit.wav");
    const auto& p = programme(minutes);
    const std::uint32_t frames = std::uint32_t(p[0].size()), channels = 2, bytesPerFrame = 6;
    const std::uint32_t dataBytes = frames * bytesPerFrame;
    std::ofstream f(path, std::ios::binary);
    auto u32 = [&](std::uint32_t v) { f.write(reinterpret_cast<const char*>(&v), 4); };
    auto u16 = [&](std::uint16_t v) { f.write(reinterpret_cast<const char*>(&v), 2); };
    f.write("RIFF", 4);
    u32(36 + dataBytes);
    f.write("WAVEfmt ", 8);
    u32(16);
    u16(1);
    u16(channels);
    u32(48000);
    u32(48000 * bytesPerFrame);
    u16(bytesPerFrame);
    u16(24);
    f.write("data", 4);
    u32(dataBytes);
    std::vector<char> block;
    block.reserve(1 << 20);
    for (std::uint32_t i = 0; i < frames; ++i) {
        for (std::uint32_t c = 0; c < channels; ++c) {
            const double x = std::clamp(double(p[c][i]), -1.0, 1.0 - 1.0 / 8388608.0);
            const auto v = std::int32_t(std::lrint(x * 8388608.0));
            block.push_back(char(v & 0xFF));
            block.push_back(char((v >> 8) & 0xFF));
            block.push_back(char((v >> 16) & 0xFF));
        }
        if (block.size() >= (1 << 20) - 6) {
            f.write(block.data(), std::streamsize(block.size()));
            block.clear();
        }
    }
    f.write(block.data(), std::streamsize(block.size()));
    return path;
}

}  // namespace velmora::bench
