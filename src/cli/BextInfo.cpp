#include "cli/BextInfo.h"

#include "output/BroadcastWave.h"

namespace velmora::cli {

void writeBextLoudness(JsonWriter& j, const std::string& path) {
    j.key("bextLoudness");
    const auto l = claimedBextLoudness(path);
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
    const auto l = claimedBextLoudness(path);
    return l ? bextLoudnessText(*l) : std::nullopt;
}

}  // namespace velmora::cli
