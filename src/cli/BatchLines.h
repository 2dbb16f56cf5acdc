#pragma once
// batch --json: one object per file on its own line, so the outputs of many tasks (one per
// slice of a file list) are merged with cat and read with any JSON-lines tool.
#include <optional>
#include <string>

#include "model/FileItem.h"

namespace velmora::cli {

struct BatchLine {
    const FileItem& item;
    std::string status;                // "mastered", "failed" or "unreadable"
    std::optional<std::string> master;  // the written file
    std::optional<std::string> error;   // why it failed
    double targetLUFS = -23.0;
    // In album mode: the album's loudness as measured and the one gain every track got.
    std::optional<double> albumLUFS{}, albumGainDB{};
};

std::string batchJsonLine(const BatchLine& line);

}  // namespace velmora::cli
