#include "output/SignalGenerators.h"

#include <cmath>
#include <cstdint>
#include <numbers>

namespace velmora {
namespace {

struct Biquad {
    double b0, b1, b2, a1, a2;
};

// RBJ sections with a Q of 1/1.4142: the alpha is written out so the coefficients, and so the
// noise, are the same on every platform.
Biquad highPass(double frequency, double sampleRate) {
    const double w0 = 2.0 * std::numbers::pi * frequency / sampleRate, cosw = std::cos(w0);
    const double alpha = std::sin(w0) / 1.4142, a0 = 1.0 + alpha;
    return {(1.0 + cosw) / 2.0 / a0, -(1.0 + cosw) / a0, (1.0 + cosw) / 2.0 / a0, -2.0 * cosw / a0,
            (1.0 - alpha) / a0};
}

Biquad lowPass(double frequency, double sampleRate) {
    const double w0 = 2.0 * std::numbers::pi * frequency / sampleRate, cosw = std::cos(w0);
    const double alpha = std::sin(w0) / 1.4142, a0 = 1.0 + alpha;
    return {(1.0 - cosw) / 2.0 / a0, (1.0 - cosw) / a0, (1.0 - cosw) / 2.0 / a0, -2.0 * cosw / a0,
            (1.0 - alpha) / a0};
}

void applyTransposedDirectForm2(std::vector<float>& x, const Biquad& f) {
    double z1 = 0.0, z2 = 0.0;
    for (float& sample : x) {
        const double in = sample, out = f.b0 * in + z1;
        z1 = f.b1 * in - f.a1 * out + z2;
        z2 = f.b2 * in - f.a2 * out;
        sample = float(out);
    }
}

}  // namespace

std::vector<float> generatePinkNoise(double seconds, double sampleRate) {
    const double length = std::floor(seconds * sampleRate);
    if (!(length >= 1.0) || !(sampleRate > 0.0) || length > 1e10) return {};
    std::vector<float> noise(static_cast<std::size_t>(length));

    std::uint64_t s = 0x9E3779B97F4A7C15ull;
    double b0 = 0, b1 = 0, b2 = 0, b3 = 0, b4 = 0, b5 = 0, b6 = 0;
    for (float& out : noise) {
        s ^= s << 13;
        s ^= s >> 7;
        s ^= s << 17;
        const double w = 2.0 * (double(std::uint32_t(s)) / 4294967295.0) - 1.0;
        b0 = 0.99886 * b0 + 0.0555179 * w;
        b1 = 0.99332 * b1 + 0.0750759 * w;
        b2 = 0.969 * b2 + 0.153852 * w;
        b3 = 0.8665 * b3 + 0.3104856 * w;
        b4 = 0.55 * b4 + 0.5329522 * w;
        b5 = -0.7616 * b5 - 0.016898 * w;
        out = float((b0 + b1 + b2 + b3 + b4 + b5 + b6 + 0.5362 * w) * 0.1);
        b6 = 0.115926 * w;
    }
    applyTransposedDirectForm2(noise, highPass(500.0, sampleRate));
    applyTransposedDirectForm2(noise, lowPass(2000.0, sampleRate));

    Channels mono{std::move(noise)};
    const double weights[] = {1.0};
    const double loudness = LoudnessEngine::measure(mono, weights, sampleRate).integratedLUFS;
    if (std::isfinite(loudness)) {
        const float gain = float(std::pow(10.0, (-23.0 - loudness) / 20.0));
        for (float& x : mono[0]) x *= gain;
    }
    return std::move(mono[0]);
}

Expected<WriteReport> saveRLLCalibration(const std::string& destination) {
    WriteRequest request;
    request.destination = destination;
    request.format = FileFormat::wav;
    request.depth = BitDepth::int24;
    return writeMaster({generatePinkNoise(rllSeconds, rllSampleRate)}, rllSampleRate, request);
}

Channels makeTestSine() {
    constexpr std::size_t frames = 96000, period = 48;  // 1 kHz at 48 kHz
    std::vector<float> sine(frames);
    // The phase is taken modulo the period so every period holds the very same samples.
    for (std::size_t k = 0; k < frames; ++k)
        sine[k] = float(0.0707 * std::sin(2.0 * std::numbers::pi * double(k % period) / double(period)));
    return {sine, sine};
}

}  // namespace velmora
