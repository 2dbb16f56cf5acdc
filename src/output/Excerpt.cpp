#include "output/Excerpt.h"

#include <algorithm>
#include <cmath>

namespace velmora {

namespace {

struct Stretch {
    std::size_t start, length;
};

Stretch centred(std::size_t frames, double sampleRate, double seconds) {
    const double wanted = sampleRate * seconds;
    const std::size_t length =
        !(wanted > 0.0) ? 0 : wanted >= double(frames) ? frames : std::size_t(std::floor(wanted));
    return {(frames - length) / 2, length};
}

}  // namespace

Expected<Channels> excerpt(const Programme& programme, double seconds) {
    const std::size_t frames = programme.frameCount();
    const auto [start, length] = centred(frames, programme.sampleRate(), seconds);
    Channels out(programme.channelCount(), std::vector<float>(length));
    auto pass = programme.read();
    for (std::size_t at = 0; at < start + length;) {
        const std::size_t n = std::min(ProgrammePass::maxBlockFrames, start + length - at);
        float* const* block = pass->next(n);
        if (!block) return pass->error();
        // The part of this block that lies in the stretch.
        const std::size_t from = std::max(at, start), to = at + n;
        if (from < to)
            for (std::size_t c = 0; c < out.size(); ++c) std::copy(block[c] + (from - at), block[c] + n, out[c].data() + (from - start));
        at = to;
    }
    return out;
}

Channels excerpt(const Channels& channels, double sampleRate, double seconds) {
    const std::size_t frames = channels.empty() ? 0 : channels[0].size();
    const auto [start, length] = centred(frames, sampleRate, seconds);
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
