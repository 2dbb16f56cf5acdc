#include "mastering/MidSide.h"

#include <algorithm>
#include <cmath>

namespace velmora {

namespace {

__attribute__((target_clones("arch=x86-64-v3", "default")))
void midSide(float* __restrict l, float* __restrict r, std::size_t n, double gM, double gS) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
        const double L = l[i], R = r[i];
        const double M = (L + R) * 0.5 * gM;
        const double S = (L - R) * 0.5 * gS;
        l[i] = float(M + S);
        r[i] = float(M - S);
    }
}

}  // namespace

void applyMidSide(float* left, float* right, std::size_t n, double midGainDB, double sideGainDB) noexcept {
    if (std::fabs(midGainDB) <= midSideGateDB && std::fabs(sideGainDB) <= midSideGateDB) return;
    midSide(left, right, n, std::pow(10.0, midGainDB / 20.0), std::pow(10.0, sideGainDB / 20.0));
}

void applyMidSide(Channels& channels, double midGainDB, double sideGainDB) noexcept {
    if (channels.size() != 2) return;
    applyMidSide(channels[0].data(), channels[1].data(), std::min(channels[0].size(), channels[1].size()), midGainDB,
                 sideGainDB);
}

}  // namespace velmora
