#pragma once
// Decoded audio of one file: one float channel per file channel, in the file's own order,
// full scale ±1.0, at the file's own rate.
#include <cstddef>
#include <cstdint>
#include <vector>

namespace velmora {

// Speaker positions use the WAVE_FORMAT_EXTENSIBLE channel-mask bits, which FFmpeg's
// native channel order shares for the first eighteen speakers.
namespace speaker {
inline constexpr std::uint64_t frontLeft = 0x1, frontRight = 0x2, frontCenter = 0x4, lowFrequency = 0x8,
                               backLeft = 0x10, backRight = 0x20, frontLeftOfCenter = 0x40,
                               frontRightOfCenter = 0x80, backCenter = 0x100, sideLeft = 0x200,
                               sideRight = 0x400;
inline constexpr std::uint64_t lowFrequency2 = std::uint64_t{1} << 35;
}  // namespace speaker

// Planar samples: one float array per channel, all of one length.
using Channels = std::vector<std::vector<float>>;

struct PlanarAudio {
    Channels channels;
    double sampleRate = 0.0;  // Hz
    // One speaker bit per channel when the file declares its layout; empty when it does not.
    std::vector<std::uint64_t> declaredPositions;
    // The file ended before its own length: decoded as far as it goes (a recording cut short).
    bool truncated = false;

    std::size_t channelCount() const { return channels.size(); }
    std::size_t frameCount() const { return channels.empty() ? 0 : channels.front().size(); }
    double durationSeconds() const { return sampleRate > 0 ? double(frameCount()) / sampleRate : 0.0; }
};

}  // namespace velmora
