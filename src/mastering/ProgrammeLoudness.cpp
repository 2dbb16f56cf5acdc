#include "mastering/ProgrammeLoudness.h"

#include "measurement/ChannelMeter.h"
#include "measurement/Kernels.h"
#include "measurement/WorkerPool.h"

namespace velmora {

namespace {

// Sums of whole energy units into blocks of N frames every H frames, as the streaming meter
// forms them, so the figures match LoudnessEngine::measure.
BlockEnergies blocksOf(const std::vector<std::vector<double>>& units, std::size_t unit, std::size_t frames,
                       std::size_t N, std::size_t H) {
    BlockEnergies out(units.size());
    if (N == 0 || H == 0 || frames < N) return out;
    const std::size_t count = (frames - N) / H + 1;
    const std::size_t perBlock = N / unit, perHop = H / unit;
    for (std::size_t c = 0; c < units.size(); ++c) {
        out[c].assign(count, 0.0);
        if (units[c].empty()) continue;  // weight 0: never filtered
        for (std::size_t j = 0; j < count; ++j) {
            const double* p = units[c].data() + j * perHop;
            double s = 0.0;
            for (std::size_t k = 0; k < perBlock; ++k) s += p[k];
            out[c][j] = s / double(N);
        }
    }
    return out;
}

}  // namespace

ProgrammeLoudness measureProgramme(const Channels& channels, double fs, std::span<const double> weights,
                                   bool withRange) {
    const std::size_t frames = channels.empty() ? 0 : channels.front().size();
    const std::size_t unit = energyUnitFrames(fs);
    const auto filter = LoudnessEngine::kWeightingCoefficients(fs);
    std::vector<std::vector<double>> units(channels.size());
    parallelFor(channels.size(), [&](std::size_t c) {
        if (c < weights.size() && weights[c] == 0.0) return;
        auto& u = units[c];
        u.resize(frames / unit);
        kernels::KWeightState state;
        const float* x = channels[c].data();
        for (std::size_t k = 0; k < u.size(); ++k) u[k] = kernels::kWeight(filter, state, x + k * unit, nullptr, unit);
    });
    const std::size_t hop = LoudnessEngine::hopFrames(fs);
    ProgrammeLoudness r;
    r.integratedLUFS = LoudnessEngine::integratedLoudness(
        blocksOf(units, unit, frames, LoudnessEngine::momentaryBlockFrames(fs), hop), weights);
    if (withRange)
        r.loudnessRange = LoudnessEngine::computeLoudnessRange(
            blocksOf(units, unit, frames, LoudnessEngine::shortTermBlockFrames(fs), hop), weights);
    return r;
}

}  // namespace velmora
