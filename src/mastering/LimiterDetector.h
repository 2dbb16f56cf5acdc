#pragma once
// What the true-peak limiter sees of each frame: the largest |sample| and 4× interpolated
// value over all channels, where the interpolated values between frame k and k + 1 count for
// frame k. The same interpolation as the measurement's true peak, so a limiter that keeps
// every frame's reading under its aim keeps the measured true peak there too.
#include <cstddef>
#include <span>
#include <vector>

namespace velmora {

class LimiterDetector {
public:
    // Frames the detector reads beyond the ones it reports: the interpolated values after
    // frame k come from samples up to k + 6.
    static constexpr std::size_t lookAhead = 6;
    static constexpr std::size_t chunkFrames = 4096;

    // Allocates its scratch: one detector per thread.
    LimiterDetector();

    // out[i] = reading of frame begin + i of the channels scaled by gainLin (each sample rounded
    // to float as the limiter scales it), for i < n; frame f of channel c is channels[c][f] for
    // f < frames, silence elsewhere. Readings that cannot reach `floorLin` may be reported as
    // anything under it (zero, say): all a caller comparing with a level at or above floorLin
    // needs. Never allocates.
    void readings(std::span<const float* const> channels, std::size_t frames, std::size_t begin, std::size_t n,
                  double gainLin, double floorLin, float* out) noexcept;

private:
    std::vector<double> samples_;  // one channel's samples from begin − 11 to begin + n + 6
    std::vector<double> interpolated_;
};


}  // namespace velmora
