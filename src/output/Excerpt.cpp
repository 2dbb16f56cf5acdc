#include "output/Excerpt.h"

#include <algorithm>
#include <cmath>

namespace velmora {

Channels excerpt(const Channels& channels, double sampleRate, double seconds) {
    const std::size_t frames = channels.empty() ? 0 : channels[0].size();
    const double wanted = sampleRate * seconds;
    const std::size_t length =
        !(wanted > 0.0) ? 0 : wanted >= double(frames) ? frames : std::size_t(std::floor(wanted));
    const std::size_t start = (frames - length) / 2;
    Channels out;
    out.reserve(channels.size());
    for (const auto& channel : channels) {
        const std::size_t begin = std::min(start, channel.size());
        const std::size_t end = std::min(start + length, channel.size());
        out.emplace_back(channel.begin() + std::ptrdiff_t(begin), channel.begin() + std::ptrdiff_t(end));
    }
    return out;
}

}  // namespace velmora
