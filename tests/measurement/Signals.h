#pragma once
// Test signal generators. Phase is tracked in double and wrapped per cycle so that long tones
// stay exact; samples are stored as float like decoded audio.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <numbers>
#include <vector>

#include "measurement/LoudnessEngine.h"

namespace velmora::signals {

inline double dbToAmplitude(double db) { return std::pow(10.0, db / 20.0); }

inline std::size_t framesFor(double seconds, double fs) { return std::size_t(std::llround(seconds * fs)); }

// Sample n of a sine whose phase at n = 0 is phaseDegrees. Working in cycles keeps the
// argument of sin small, so fs/4 at 45° lands on ±1/√2 to the last bit of a float.
inline double sineSample(double frequency, double fs, std::size_t n, double phaseDegrees = 0.0) {
    double cycles = frequency * double(n) / fs;
    cycles -= std::floor(cycles);
    return std::sin(2.0 * std::numbers::pi * cycles + phaseDegrees * std::numbers::pi / 180.0);
}

// Peak amplitude in dBFS: a full-scale sine is 0 dBFS.
inline std::vector<float> sine(double frequency, double dbfs, std::size_t frames, double fs,
                               double phaseDegrees = 0.0) {
    std::vector<float> out(frames);
    const double a = dbToAmplitude(dbfs);
    for (std::size_t n = 0; n < frames; ++n) out[n] = float(a * sineSample(frequency, fs, n, phaseDegrees));
    return out;
}

struct Segment {
    double dbfs;  // peak level; -infinity for digital silence
    double seconds;
};

// One continuous-phase tone whose level steps from segment to segment, as the level-step
// test files do.
inline std::vector<float> toneSequence(double frequency, std::initializer_list<Segment> segments, double fs) {
    std::vector<float> out;
    for (const auto& s : segments) {
        const std::size_t start = out.size();
        const std::size_t frames = framesFor(s.seconds, fs);
        const double a = std::isinf(s.dbfs) ? 0.0 : dbToAmplitude(s.dbfs);
        out.resize(start + frames);
        for (std::size_t n = start; n < start + frames; ++n) out[n] = float(a * sineSample(frequency, fs, n));
    }
    return out;
}

inline std::vector<float> silence(std::size_t frames) { return std::vector<float>(frames, 0.0f); }

inline void append(std::vector<float>& to, const std::vector<float>& more) { to.insert(to.end(), more.begin(), more.end()); }

// Tone burst of `burstFrames` after `leadFrames` of silence, padded with silence to `totalFrames`.
// The burst's phase starts at zero, like a file cut at the burst onset.
inline std::vector<float> burst(double frequency, double dbfs, std::size_t leadFrames, std::size_t burstFrames,
                                std::size_t totalFrames, double fs) {
    std::vector<float> out(totalFrames, 0.0f);
    const double a = dbToAmplitude(dbfs);
    for (std::size_t n = 0; n < burstFrames && leadFrames + n < totalFrames; ++n)
        out[leadFrames + n] = float(a * sineSample(frequency, fs, n));
    return out;
}

inline Channels stereoBoth(const std::vector<float>& x) { return {x, x}; }
inline Channels leftOnly(const std::vector<float>& x) { return {x, std::vector<float>(x.size(), 0.0f)}; }

// Loudness of a 997 Hz sine of the given peak level, for channel-weight sum w: the K-weighting
// gain there (+0.691 dB) cancels the -0.691 offset to within 2e-5 dB, so what remains is the
// sine's mean square, A²/2.
inline double toneLoudness997(double dbfs, double weightSum = 1.0) {
    return dbfs + 10.0 * std::log10(0.5 * weightSum);
}

// Deterministic generator (xorshift64*), uniform in [-1, 1): the same stream on every machine.
class Noise {
public:
    explicit Noise(std::uint64_t seed) : state_(seed ? seed : 0x9E3779B97F4A7C15ull) {}
    double next() {
        state_ ^= state_ >> 12;
        state_ ^= state_ << 25;
        state_ ^= state_ >> 27;
        const std::uint64_t r = state_ * 0x2545F4914F6CDD1Dull;
        return double(r >> 11) * (2.0 / 9007199254740992.0) - 1.0;
    }

private:
    std::uint64_t state_;
};

// Roughly pink noise: white noise summed through three one-pole low-passes whose corners
// sit a decade apart, which gives about -3 dB per octave over the audible middle.
class PinkishNoise {
public:
    PinkishNoise(std::uint64_t seed, double fs) : white_(seed) {
        const double corners[3] = {60.0, 600.0, 6000.0};
        const double gains[3] = {3.0, 1.0, 0.35};
        for (int i = 0; i < 3; ++i) {
            pole_[i] = std::exp(-2.0 * std::numbers::pi * corners[i] / fs);
            // Equal-variance scaling of each branch before its gain.
            scale_[i] = gains[i] * std::sqrt(1.0 / (1.0 - pole_[i]));
        }
    }
    double next() {
        const double w = white_.next();
        double sum = 0.0;
        for (int i = 0; i < 3; ++i) {
            state_[i] = pole_[i] * state_[i] + (1.0 - pole_[i]) * w;
            sum += scale_[i] * state_[i];
        }
        return 0.1 * (sum + 0.05 * w);
    }

private:
    Noise white_;
    double pole_[3]{};
    double scale_[3]{};
    double state_[3]{};
};

inline double meanSquareForLoudness(double lufs) { return std::pow(10.0, (lufs - LoudnessEngine::loudnessOffset) / 10.0); }

}  // namespace velmora::signals
