#include "audio/StereoFold.h"

#include <algorithm>

namespace velmora {

namespace {

constexpr float minus3dB = 0.707f;

// out[i] += k · in[i].
void mixIn(float* out, const float* in, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) out[i] += minus3dB * in[i];
}

}  // namespace

void foldToStereo(const float* const* channels, std::size_t count, std::size_t n, float* left, float* right) {
    if (count == 0) {
        std::fill_n(left, n, 0.0f);
        std::fill_n(right, n, 0.0f);
        return;
    }
    std::copy_n(channels[0], n, left);
    std::copy_n(channels[count >= 2 ? 1 : 0], n, right);
    if (count >= 3) {
        mixIn(left, channels[2], n);
        mixIn(right, channels[2], n);
    }
    if (count >= 5) mixIn(left, channels[4], n);
    if (count >= 6) mixIn(right, channels[5], n);
}

StereoSamples foldToStereo(const Channels& channels) {
    const std::size_t c = channels.size();
    if (c == 0) return {};
    const std::size_t n = channels[0].size();
    // A shorter channel counts as silence where it ends.
    std::vector<std::vector<float>> padded;
    padded.reserve(c);  // the pointers taken below stay valid
    std::vector<const float*> from(c);
    for (std::size_t k = 0; k < c; ++k) {
        if (channels[k].size() >= n) {
            from[k] = channels[k].data();
        } else {
            auto& copy = padded.emplace_back(channels[k]);
            copy.resize(n, 0.0f);
            from[k] = copy.data();
        }
    }
    StereoSamples out{std::vector<float>(n), std::vector<float>(n)};
    foldToStereo(from.data(), c, n, out.left.data(), out.right.data());
    return out;
}

}  // namespace velmora
