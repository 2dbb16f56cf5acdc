#include "output/SignalGenerators.h"

#include <cmath>
#include <cstdint>
#include <numbers>

#include "measurement/Biquad.h"

namespace velmora {

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
    applyBiquad(noise, designHighPass(sampleRate, 500.0, 0.7071));
    applyBiquad(noise, designLowPass(sampleRate, 2000.0, 0.7071));

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

}  // namespace velmora
