#include "cli/BextInfo.h"

#include "output/BroadcastWave.h"

namespace velmora::cli {

namespace {

std::optional<BextLoudness> claimed(const std::string& path) {
    const SourceMetadata metadata = readSourceMetadata(path);
    if (!metadata.bext || !bextLoudnessText(metadata.bext->loudness)) return std::nullopt;
    return metadata.bext->loudness;
}

}  // namespace

void writeBextLoudness(JsonWriter& j, const std::string& path) {
    j.key("bextLoudness");
    const auto l = claimed(path);
    if (!l) {
        j.null();
        return;
    }
    j.beginObject()
        .field("integratedLUFS", l->integratedLUFS)
        .field("loudnessRange", l->loudnessRange)
        .field("maxTruePeakDB", l->maxTruePeakDB)
        .field("maxMomentaryLUFS", l->maxMomentaryLUFS)
        .field("maxShortTermLUFS", l->maxShortTermLUFS)
        .endObject();
}

std::optional<std::string> bextLoudnessLine(const std::string& path) {
    const auto l = claimed(path);
    return l ? bextLoudnessText(*l) : std::nullopt;
}

}  // namespace velmora::cli
