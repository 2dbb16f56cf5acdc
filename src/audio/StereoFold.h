#pragma once
// Any channel count heard on two loudspeakers: what real-time listening plays. Centre and the
// first surround pair come in at -3 dB; LFE, rear surrounds and heights are left out.
#include <cstddef>
#include <vector>

#include "audio/PlanarAudio.h"

namespace velmora {

struct StereoSamples {
    std::vector<float> left, right;
};

// Allocates. Channels in file order (L R C LFE Ls Rs for 5.1); the result has the length of the
// first channel, and both halves are empty without channels.
//   1: ch0 both sides   2: ch0, ch1   3-4: ch0 + k·ch2, ch1 + k·ch2
//   5: ch0 + k·ch2 + k·ch4, ch1 + k·ch2   6+: ch0 + k·ch2 + k·ch4, ch1 + k·ch2 + k·ch5   (k = 0.707f)
StereoSamples foldToStereo(const Channels& channels);

// The same fold over n frames of `count` planar channels into `left` and `right`, which hold n
// each; allocates nothing, so a stream can fold block by block with the very same arithmetic.
void foldToStereo(const float* const* channels, std::size_t count, std::size_t n, float* left, float* right);

}  // namespace velmora
