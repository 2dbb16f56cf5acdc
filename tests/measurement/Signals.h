#pragma once
// Test signal generators. Phase is tracked in double and wrapped per cycle so that long tones
// stay exact; samples are stored as float like decoded audio.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <numbers>
#include <vector>

#include "measurement/LoudnessEngine.h"

namespace velmora::signals {

inline constexpr double fs48 = 48000.0;
inline constexpr double minusInf = -std::numeric_limits<double>::infinity();
inline const std::vector<double> mono{1.0};
inline const std::vector<double> stereo{1.0, 1.0};

inline double dbToAmplitude(double db) { return std::pow(10.0, db / 20.0); }

inline std::size_t framesFor(double seconds, double fs) { return std::size_t(std::llround(seconds * fs)); }

// Sample n of a sine whose phase at n = 0 is phaseDegrees. Working in cycles keeps the
// argument of sin small, so fs/4 at 45° lands on ±1/√2 to the last bit of a float.
inline double sineSample(double frequency, double fs, std::size_t n, double phaseDegrees = 0.0) {
    double cycles = frequency * double(n) / fs;
    cycles -= std::floor(cycles);
    return std::sin(2.0 * std::numbers::pi * cycles + phaseDegrees * std::numbers::pi / 180.0);
}

struct Segment {
    double dbfs;  // peak level: a full-scale sine is 0 dBFS
    double seconds;
};

// One continuous-phase tone whose level steps from segment to segment, as the level-step
// test files do.
inline std::vector<float> toneSequence(double frequency, const std::vector<Segment>& segments, double fs) {
    std::vector<float> out;
    for (const auto& s : segments) {
        const std::size_t start = out.size();
        const double a = dbToAmplitude(s.dbfs);
        out.resize(start + framesFor(s.seconds, fs));
        for (std::size_t n = start; n < out.size(); ++n) out[n] = float(a * sineSample(frequency, fs, n));
    }
    return out;
}

inline std::vector<float> sine(double frequency, double dbfs, std::size_t frames, double fs) {
    return toneSequence(frequency, {{dbfs, double(frames) / fs}}, fs);
}

inline std::vector<float> silence(std::size_t frames) { return std::vector<float>(frames, 0.0f); }

inline Channels stereoBoth(const std::vector<float>& x) { return {x, x}; }
inline Channels leftOnly(const std::vector<float>& x) { return {x, silence(x.size())}; }

// Loudness of a 997 Hz sine of the given peak level, for channel-weight sum w: the K-weighting
// gain there (+0.691 dB) cancels the -0.691 offset to within 2e-5 dB, so what remains is the
// sine's mean square, A²/2.
inline double toneLoudness997(double dbfs, double weightSum = 1.0) { return dbfs + 10.0 * std::log10(0.5 * weightSum); }

inline double meanSquareForLoudness(double lufs) { return std::pow(10.0, (lufs - LoudnessEngine::loudnessOffset) / 10.0); }

// Roughly pink noise: white noise summed through three one-pole low-passes whose corners
// sit a decade apart, which gives about -3 dB per octave over the audible middle.
class PinkishNoise {
public:
    PinkishNoise(std::uint64_t seed, double fs) : seed_(seed) {
        const double corners[3] = {60.0, 600.0, 6000.0}, gains[3] = {3.0, 1.0, 0.35};
        for (int i = 0; i < 3; ++i) {
            pole_[i] = std::exp(-2.0 * std::numbers::pi * corners[i] / fs);
            // Equal-variance scaling of each branch before its gain.
            scale_[i] = gains[i] * std::sqrt(1.0 / (1.0 - pole_[i]));
        }
    }
    double next() {
        const double w = white();
        double sum = 0.0;
        for (int i = 0; i < 3; ++i) sum += scale_[i] * (state_[i] = pole_[i] * state_[i] + (1.0 - pole_[i]) * w);
        return 0.1 * (sum + 0.05 * w);
    }

private:
    // xorshift64*, uniform in [-1, 1): the same stream on every machine.
    double white() {
        seed_ ^= seed_ >> 12;
        seed_ ^= seed_ << 25;
        seed_ ^= seed_ >> 27;
        return double((seed_ * 0x2545F4914F6CDD1Dull) >> 11) * (2.0 / 9007199254740992.0) - 1.0;
    }
    std::uint64_t seed_;
    double pole_[3]{}, scale_[3]{}, state_[3]{};
};

}  // namespace velmora::signals
