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
    bool normGiven = false;  // --norm was on the command line, not left at its default
};

MeasureOptions parseMeasureOptions(Args& args);

struct MasterOptions {
    MeasureOptions measure;
    std::string output;
    double targetLUFS = -23.0;
    double ceilingDB = -1.0;
    ProcessMode mode = ProcessMode::master;
    MasterParams params;
    FileFormat format = FileFormat::wav;
    bool formatGiven = false;
    BitDepth depth = BitDepth::int24;
    double outputRate = 0.0;
};

// The options of every command that writes masters: -o, the norm or --target/--ceiling,
// --mode, --params, --format, --bits, --rate, and the measurement options.
MasterOptions parseMasterOptions(Args& args, const std::string& command);

// --params FILE.json: a complete chain settings object (35 keys), else a usage error.
MasterParams readParamsFile(const std::string& path);
// --bits 16|24|32f
BitDepth parseBits(const std::string& text);

}  // namespace velmora::cli
