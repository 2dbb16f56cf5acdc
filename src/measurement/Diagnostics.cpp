#include "measurement/Diagnostics.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>

#include "audio/NumberFormat.h"
#include "measurement/Kernels.h"
#include "measurement/WorkerPool.h"

namespace velmora {

std::string InversionWarning::text() const {
    return "Inversion C/LFE probable (Centre : " + formatFixed(centerSubRatio * 100.0, 0) + " % sub-graves, LFE : " +
           formatFixed(lfeSubRatio * 100.0, 0) + " %)";
}

Biquad subBassLowPass(double fs) { return designLowPass(fs, 120.0, 0.707); }

std::vector<ChannelEnergy> channelEnergies(const std::vector<std::vector<float>>& channels, double fs) {
    // The K-weighting kernel with an identity second section is exactly one biquad.
    const KWeightingFilter single{subBassLowPass(fs), identitySection};

    std::vector<ChannelEnergy> out(channels.size());
    parallelFor(channels.size(), [&](std::size_t c) {
        const auto& x = channels[c];
        out[c].index = int(c);
        if (x.empty()) return;
        const double L = double(x.size());
        out[c].totalMS = kernels::sumOfSquares(x.data(), x.size()) / L;
        kernels::KWeightState st;
        out[c].subMS = kernels::kWeight(single, st, x.data(), nullptr, x.size()) / L;
    });
    return out;
}

std::optional<InversionWarning> detectInversion(const std::vector<ChannelEnergy>& e, ChannelOrder order) {
    if (e.size() != 6) return std::nullopt;
    const auto labels = orderLabels(order);
    const auto c = std::find(labels.begin(), labels.end(), "C") - labels.begin();
    const auto l = std::find(labels.begin(), labels.end(), "LFE") - labels.begin();
    if (c >= 6 || l >= 6) return std::nullopt;
    if (!(e[c].totalMS > 1e-7) || !(e[l].totalMS > 1e-7)) return std::nullopt;
    auto ratio = [](const ChannelEnergy& x) { return x.totalMS <= 1e-12 ? 0.0 : x.subMS / x.totalMS; };
    const double rc = ratio(e[c]), rl = ratio(e[l]);
    if (rc > 0.6 && rl < 0.4) return InversionWarning{int(c), int(l), rc, rl};
    return std::nullopt;
}

std::vector<float> waveformPeaks(const std::vector<std::vector<float>>& channels, int pointCount) {
    if (channels.empty() || channels.front().empty() || pointCount < 1) return {};
    const std::size_t L = channels.front().size(), N = std::size_t(pointCount);
    const std::size_t bucket = N <= L ? L / N : 1;
    std::vector<float> peaks(N, 0.0f);
    for (std::size_t i = 0; i < N; ++i) {
        const std::size_t from = i * bucket;
        if (from >= L) break;
        const std::size_t to = std::min(L, from + bucket);
        float m = 0.0f;
        for (const auto& ch : channels)
            for (std::size_t k = from; k < to && k < ch.size(); ++k) m = std::max(m, std::fabs(ch[k]));
        peaks[i] = m;
    }
    return peaks;
}

}  // namespace velmora
