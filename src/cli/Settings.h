#pragma once
// Measurement options shared by the sub-commands: --layout, --order, --gating, --norm.
#include "audio/ChannelLayout.h"
#include "cli/Args.h"
#include "mastering/MasterParams.h"
#include "output/OutputFormat.h"

namespace velmora::cli {

struct MeasureOptions {
    ChannelLayout layout = ChannelLayout::autoDetect;
    ChannelOrder order = ChannelOrder::smpte;
    GatingMode gating = GatingMode::autoMode;
    int norm = 0;
};

MeasureOptions parseMeasureOptions(Args& args);

// --params FILE.json: a complete chain settings object (35 keys), else a usage error.
MasterParams readParamsFile(const std::string& path);
// --bits 16|24|32f
BitDepth parseBits(const std::string& text);

}  // namespace velmora::cli
