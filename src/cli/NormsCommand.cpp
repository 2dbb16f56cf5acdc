#include <iostream>

#include "cli/Commands.h"
#include "cli/Json.h"
#include "cli/Text.h"
#include "audio/NumberFormat.h"
#include "norms/Presets.h"

namespace velmora::cli {

namespace {
std::string groupOf(int index) {
    for (const auto* g : {&broadcastGroup(), &streamingGroup()})
        for (int i : g->indices)
            if (i == index) return g->title;
    return {};
}
}  // namespace

int runNorms(Args& args) {
    const bool json = args.flag("--json");
    if (!args.positionals().empty()) throw UsageError("norms takes no file");
    const auto& table = presets();
    for (int i = 0; i < int(table.size()); ++i) {
        const auto& p = table[std::size_t(i)];
        const std::string group = groupOf(i);
        if (json) {
            JsonWriter j;
            j.beginObject()
                .field("index", i)
                .field("label", p.label)
                .field("tag", presetTag(i))
                .field("targetLUFS", p.lufs)
                .field("ceilingDBTP", p.ceiling)
                .field("toleranceLU", p.toleranceLU)
                .field("unit", rawValue(p.unit))
                .field("gating", rawValue(p.recommendedGating))
                .field("ceilingLocked", p.ceilingLocked)
                .field("ldrLimitLU", p.ldrLimitLU)
                .field("msLimitLUFS", p.msLimitLUFS);
            j.key("group");
            if (group.empty()) j.null();
            else j.value(group);
            j.endObject();
            std::cout << j.str() << '\n';
        } else {
            std::cout << padLeft(std::to_string(i), 2) << "  " << padRight(p.label, 42) << "  "
                      << padLeft(formatOneDecimal(p.lufs), 5) << ' ' << rawValue(p.unit) << " ±"
                      << formatOneDecimal(p.toleranceLU) << "  TP " << padLeft(formatOneDecimal(p.ceiling), 4)
                      << " dBTP" << (p.ceilingLocked ? " (imposé)" : "         ") << "  " << padRight(presetTag(i), 9)
                      << (group.empty() ? "" : "  " + group) << '\n';
        }
    }
    return 0;
}

}  // namespace velmora::cli
