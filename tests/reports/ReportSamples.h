#pragma once
// A representative master for the report tests: a spoken-word file brought to EBU R128.
#include <limits>

#include "reports/ReportInputs.h"

namespace velmora::test {

inline constexpr double minusInfinity = -std::numeric_limits<double>::infinity();

inline ReportInputs sampleMaster() {
    ReportInputs in;
    in.sourceName = "Interview brute.wav";
    in.exportedName = "Interview brute_EBU.wav";
    in.channelCount = 2;
    in.sampleRate = 48000;
    in.bitDepth = 24;
    in.presetIndex = 0;
    in.target = -23.0;
    in.ceiling = -1.0;
    in.gainDB = -23.0 - -18.4;
    in.before = {-18.4, 9.3, -0.3, -10.2, -13.1, std::nullopt};
    in.after = {-23.0, 8.7, -1.2, -15.1, -17.9, std::nullopt};
    MasterParams& p = in.params;
    p.eqOn = p.hpfOn = p.compOn = p.lraOn = p.msOn = true;
    p.lsGain = 1.5;
    p.b2Gain = -2.0;
    p.b2Q = 1.4;
    p.hsGain = 0.02;  // left at rest
    p.compMakeup = 1.0;
    p.sideGain = 1.5;
    in.maxGR = 3.46;
    in.durationSeconds = 600;
    in.date = "14/03/2025 09:05";
    return in;
}

}  // namespace velmora::test
