#include "cli/BatchLines.h"

#include "cli/Json.h"

namespace velmora::cli {

namespace {

void measurement(JsonWriter& j, std::string_view key, const std::optional<LoudnessResult>& r) {
    j.key(key);
    if (!r) {
        j.null();
        return;
    }
    j.beginObject()
        .field("integratedLUFS", r->integratedLUFS)
        .field("loudnessRange", r->loudnessRange)
        .field("truePeakDB", r->truePeakDB)
        .field("momentaryMax", r->momentaryMax)
        .field("shortTermMax", r->shortTermMax)
        .endObject();
}

}  // namespace

std::string batchJsonLine(const BatchLine& line) {
    const FileItem& item = line.item;
    JsonWriter j;
    j.beginObject();
    j.field("file", item.name.toStdString()).field("source", item.url).field("status", line.status);
    j.key("master");
    if (line.master) j.value(*line.master);
    else j.null();
    j.key("error");
    if (line.error) j.value(*line.error);
    else j.null();
    j.field("targetLUFS", line.targetLUFS);
    const bool mastered = line.status == "mastered";
    measurement(j, "before", item.sourceMeasure());
    measurement(j, "after", mastered ? item.measured : std::nullopt);
    j.field("targetMissedLUFS", mastered ? item.targetMissedLUFS : std::nullopt);
    j.field("albumLUFS", line.albumLUFS).field("albumGainDB", line.albumGainDB);
    j.endObject();
    return j.str();
}

}  // namespace velmora::cli
