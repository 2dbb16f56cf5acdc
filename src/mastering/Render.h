#pragma once
// The offline sound-shaping chain over a whole decoded file at its own rate.
#include <span>

#include "mastering/MasterParams.h"
#include "measurement/LoudnessEngine.h"

namespace velmora {

struct RenderResult {
    Channels channels;
    double maxGR = 0;  // dB, the bus compressor's largest reduction; 0 when it is off
};

// Stages in fixed order, each only when switched on: Mid/Side (two channels only), five-band
// equaliser, bus compressor, tonal equaliser, loudness-range reduction. Every stage but
// Mid/Side works on every channel, LFE included; measurements use `weights`. The buffer is
// processed in place; with every stage off it comes back untouched. `progress` receives
// fractions of the whole job, rising from 0.02 to 0.6 (conformance and writing follow).
// Allocates gain curves of one float per frame and the worker threads.
RenderResult renderMaster(Channels channels, const MasterParams& params, double fs,
                          std::span<const double> weights, const ProgressFn& progress = {});

}  // namespace velmora
