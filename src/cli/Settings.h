#pragma once
// Measurement options shared by the sub-commands: --layout, --order, --gating, --norm.
#include "audio/ChannelLayout.h"
#include "cli/Args.h"

namespace velmora::cli {

struct MeasureOptions {
    ChannelLayout layout = ChannelLayout::autoDetect;
    ChannelOrder order = ChannelOrder::smpte;
    GatingMode gating = GatingMode::autoMode;
    int norm = 0;
};

MeasureOptions parseMeasureOptions(Args& args);

}  // namespace velmora::cli
