#pragma once
// Short speaker names for a programme's channels (L R C LFE Ls Rs …), for per-channel figures.
#include <cstdint>
#include <string>
#include <vector>

#include "audio/ChannelLayout.h"

namespace velmora {

// By the rule the weights follow: the positions the file declares, else the 5.1 order for six
// channels, else the chosen layout when its count matches, else the usual layout of the count
// ("M" for mono, "1", "2" … when none fits).
std::vector<std::string> channelLabels(int channelCount, ChannelLayout layout, ChannelOrder order,
                                       const std::vector<std::uint64_t>& declaredPositions = {});

}  // namespace velmora
