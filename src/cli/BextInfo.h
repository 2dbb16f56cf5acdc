#pragma once
// The loudness a WAV file's bext chunk claims, shown beside Velmora's own measurement so a
// mismatch is seen.
#include <optional>
#include <string>

#include "cli/Json.h"

namespace velmora::cli {

// "bextLoudness": {"integratedLUFS", "loudnessRange", "maxTruePeakDB", "maxMomentaryLUFS",
// "maxShortTermLUFS"} (null for a field the file leaves unset), or null without any.
void writeBextLoudness(JsonWriter& json, const std::string& path);
// The line the human output shows, when the file claims a loudness.
std::optional<std::string> bextLoudnessLine(const std::string& path);

}  // namespace velmora::cli
