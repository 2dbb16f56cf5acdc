#include "audio/StereoFold.h"

#include <algorithm>

namespace velmora {

namespace {

constexpr float minus3dB = 0.707f;

// out[i] += k · in[i], over what both hold.
void mixIn(std::vector<float>& out, const std::vector<float>& in) {
    const std::size_t n = std::min(out.size(), in.size());
    for (std::size_t i = 0; i < n; ++i) out[i] += minus3dB * in[i];
}

}  // namespace

StereoSamples foldToStereo(const Channels& channels) {
    const std::size_t c = channels.size();
    if (c == 0) return {};
    StereoSamples out{channels[0], c >= 2 ? channels[1] : channels[0]};
    out.right.resize(out.left.size(), 0.0f);
    if (c >= 3) {
        mixIn(out.left, channels[2]);
        mixIn(out.right, channels[2]);
    }
    if (c >= 5) mixIn(out.left, channels[4]);
    if (c >= 6) mixIn(out.right, channels[5]);
    return out;
}

}  // namespace velmora
