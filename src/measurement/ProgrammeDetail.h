#pragma once
// What a measurement keeps beyond its single figures: loudness over time, where the readings
// went over and where samples clipped, and every channel's own figures. Events for a norm are
// derived from it (EventDetector.h), so changing the norm needs no new measurement.
#include <array>
#include <cstddef>
#include <vector>

#include "measurement/LoudnessHistory.h"
#include "measurement/PeakRuns.h"

namespace velmora {

struct ChannelFigures {
    double loudnessLUFS;  // weighted contribution to the integrated loudness, -inf when none
    double truePeakDB;
};

struct ProgrammeDetail {
    double sampleRate = 0.0;
    LoudnessHistory history;
    // Per level of overLevelsDB: runs of readings above it, every channel, by start frame.
    std::array<std::vector<PeakRun>, overLevelsDB.size()> overRuns{};
    std::array<std::size_t, overLevelsDB.size()> droppedOverRuns{};
    std::vector<PeakRun> clipRuns;  // by start frame
    std::size_t droppedClipRuns = 0;
    std::vector<ChannelFigures> channels;

    bool empty() const { return history.empty() && channels.empty(); }
};

}  // namespace velmora
