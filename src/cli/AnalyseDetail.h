#pragma once
// What analyse adds beside a file's figures: its events against the chosen norm, every
// channel's figures, the edges of its loudness range, and its loudness over time as CSV.
#include <ostream>
#include <string>
#include <vector>

#include "cli/Json.h"
#include "measurement/EventDetector.h"
#include "measurement/FileAnalysis.h"

namespace velmora::cli {

inline constexpr std::size_t eventsShownInText = 20;

// "lraLow", "lraHigh", "channelsDetail" and "events" into the file's open JSON object.
void writeDetailJson(JsonWriter& json, const FileAnalysis& analysis, const std::vector<std::string>& channelLabels,
                     const EventList& events);
// The LRA edges, a multichannel file's channels, then the first events and how many more.
void printDetail(std::ostream& out, const FileAnalysis& analysis, const std::vector<std::string>& channelLabels,
                 const EventList& events);
// time,momentary,shortTerm,integrated every 100 ms; an empty field where nothing was measured.
void writeTimelineCsv(std::ostream& out, const LoudnessHistory& history);

}  // namespace velmora::cli
