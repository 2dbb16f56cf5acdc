#pragma once
// Reports live beside their master and share its name: X.wav gets X.txt and X.pdf.
#include <filesystem>
#include <optional>
#include <string_view>

#include "audio/LoudnessError.h"

namespace velmora {

// The master's path with its extension replaced, e.g. ("/m/X.wav", "txt") → "/m/X.txt".
std::filesystem::path reportPath(const std::filesystem::path& masterPath, std::string_view extension);

// Writes the bytes as they are (UTF-8 text carries no byte-order mark) through a hidden file
// renamed over the report, so a failed write leaves any earlier report and the master intact.
std::optional<LoudnessError> writeReport(const std::filesystem::path& masterPath, std::string_view extension,
                                         std::string_view bytes);

}  // namespace velmora
