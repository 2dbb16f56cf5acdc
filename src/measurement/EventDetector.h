#pragma once
// The places where a programme breaks a norm, with their times, from what its measurement kept.
// Cheap enough to run again whenever the norm or a limit changes.
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "measurement/ProgrammeDetail.h"

namespace velmora {

enum class EventKind { truePeakOver, clipping, shortTermOver, momentaryOver };

struct LoudnessEvent {
    EventKind kind = EventKind::truePeakOver;
    double startSeconds = 0.0;
    double endSeconds = 0.0;
    double valueDB = 0.0;        // highest reading: dBTP, dBFS (clipping) or LUFS
    std::optional<int> channel;  // where it peaked; none for a loudness over (all channels)
};

struct EventLimits {
    double ceilingDBTP = -1.0;
    std::optional<double> shortTermMaxLUFS;  // the norm's, when it sets one
    std::optional<double> momentaryMaxLUFS;  // the user's, off unless set
};

struct EventList {
    std::vector<LoudnessEvent> events;  // by start time
    std::size_t notListed = 0;          // runs found but not kept (a list is capped)
    std::size_t count(EventKind kind) const;
};

EventList detectEvents(const ProgrammeDetail& detail, const EventLimits& limits);
// How many clipped passages the programme has, whatever the norm.
std::size_t clippedPassages(const ProgrammeDetail& detail);

// "truePeakOver", "clipping", "shortTermOver", "momentaryOver": the JSON words.
std::string_view eventKindKey(EventKind kind);
// "Dépassement TP", "Écrêtage", "Dépassement S", "Dépassement M", or the English words.
std::string_view eventKindText(EventKind kind, bool english = false);
// The unit of an event's value: "dBTP", "dBFS" or "LUFS".
std::string_view eventUnit(EventKind kind);
// hh:mm:ss.cc, hundredths truncated so a timecode never lies after its event.
std::string timecode(double seconds);
// "00:01:12.40  Dépassement TP   +0.4 dBTP  R": one line of a list, the channel named by
// `channelLabels` (its number from 1 when the list is short).
std::string eventLine(const LoudnessEvent& event, const std::vector<std::string>& channelLabels, bool english = false);
// The channel's name in such a list, empty for a loudness over.
std::string eventChannelName(const LoudnessEvent& event, const std::vector<std::string>& channelLabels);

}  // namespace velmora
