#include "norms/Presets.h"

#include <algorithm>
#include <cstdint>
#include <random>

namespace velmora {

namespace {

std::string randomUuid(std::mt19937_64& rng) {
    std::uint64_t high = rng();
    std::uint64_t low = rng();
    // Version and variant bits mark the id as a random UUID, so any UUID parser accepts it.
    high = (high & ~0xF000ULL) | 0x4000ULL;
    low = (low & ~(0xC000ULL << 48)) | (0x8000ULL << 48);
    constexpr char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(36);
    auto put = [&](std::uint64_t word, int fromNibble, int count) {
        for (int i = fromNibble; i < fromNibble + count; ++i)
            out += digits[(word >> (60 - 4 * i)) & 0xF];
    };
    put(high, 0, 8);
    out += '-';
    put(high, 8, 4);
    out += '-';
    put(high, 12, 4);
    out += '-';
    put(low, 0, 4);
    out += '-';
    put(low, 4, 12);
    return out;
}

std::vector<Preset> buildPresets() {
    using enum LoudnessUnit;
    constexpr GatingMode ebu = GatingMode::ebuR128;
    constexpr GatingMode dialog = GatingMode::dialog;
    constexpr std::optional<double> none;

    std::vector<Preset> table{
        {"", "-23 LUFS · TV Europe (EBU R128)", -23.0, -1.0, lufs, ebu, false, none, -18.0, 0.2},
        {"", "-23 LUFS · PAD TV France (CST RT-040)", -23.0, -3.0, lufs, ebu, true, none, none, 0.2},
        {"", "-23 LUFS · AGCOM 219/09 (Italie)", -23.0, -1.0, lufs, ebu, false, none, -18.0, 0.2},
        {"", "-24 LKFS · CALM Act USA (ATSC A/85)", -24.0, -2.0, lkfs, dialog, true, 5.0, none, 1.0},
        {"", "-24 LKFS · CRTC PB 2012-273 (Canada)", -24.0, -2.0, lkfs, dialog, false, 5.0, none, 1.0},
        {"", "-24 LKFS · ARIB TR-B32 (Japon)", -24.0, -1.0, lkfs, ebu, false, none, none, 1.0},
        {"", "-24 LKFS · OP-59 (Australie)", -24.0, -2.0, lkfs, ebu, false, none, none, 1.0},
        {"", "-24 LKFS · KCC (Corée)", -24.0, -2.0, lkfs, ebu, false, none, none, 1.0},
        {"", "-27 LKFS · Cinéma / Netflix", -27.0, -2.0, lkfs, dialog, true, 5.0, none, 0.2},
        {"", "-27 LKFS · CST RT-017 (Cinéma France)", -27.0, -2.0, lkfs, dialog, false, 5.0, none, 0.2},
        {"", "-16 LUFS · Apple Music", -16.0, -1.0, lufs, ebu, false, none, none, 0.2},
        {"", "-16 LUFS · Apple Podcasts", -16.0, -1.0, lufs, ebu, false, none, none, 0.2},
        {"", "-18 LUFS · Dolby Atmos Music", -18.0, -1.0, lufs, ebu, false, none, none, 0.2},
        {"", "-18 LUFS · Tidal HiFi", -18.0, -1.0, lufs, ebu, false, none, none, 0.2},
        {"", "-14 LUFS · Spotify (normalized)", -14.0, -1.0, lufs, ebu, false, none, none, 0.2},
        {"", "-14 LUFS · YouTube", -14.0, -1.0, lufs, ebu, false, none, none, 0.2},
        {"", "-14 LUFS · Amazon Music", -14.0, -2.0, lufs, ebu, false, none, none, 0.2},
        {"", "-14 LUFS · Tidal (normal)", -14.0, -1.0, lufs, ebu, false, none, none, 0.2},
        {"", "-14 LUFS · Deezer", -14.0, -1.0, lufs, ebu, false, none, none, 0.2},
        {"", "-14 LUFS · Pandora", -14.0, -1.0, lufs, ebu, false, none, none, 0.2},
        {"", "-9 LUFS · Master « loud » (club)", -9.0, -1.0, lufs, ebu, false, none, none, 0.2},
    };

    std::random_device entropy;
    std::seed_seq seed{entropy(), entropy(), entropy(), entropy()};
    std::mt19937_64 rng(seed);
    for (Preset& p : table) p.id = randomUuid(rng);
    return table;
}

// Appending rather than `"p" + std::to_string(...)` avoids a false -Wrestrict from GCC 12 at -O3.
std::string numbered(const char* prefix, int index) {
    std::string text(prefix);
    text += std::to_string(index);
    return text;
}

}  // namespace

const std::vector<Preset>& presets() {
    static const std::vector<Preset> table = buildPresets();
    return table;
}

const Preset& presetAt(int index) {
    const auto& table = presets();
    const int last = static_cast<int>(table.size()) - 1;
    return table[static_cast<std::size_t>(std::min(last, std::max(0, index)))];
}

GatingMode effectiveGatingMode(GatingMode setting, const Preset& preset) {
    return setting == GatingMode::autoMode ? preset.recommendedGating : setting;
}

NormSelection applyPreset(const Preset& preset, GatingMode currentGating) {
    // Automatic stays automatic either way, so only a hand choice can be kept.
    return {preset.lufs, preset.ceiling, preset.unit,
            currentGating == preset.recommendedGating ? currentGating : GatingMode::autoMode};
}

const PresetGroup& broadcastGroup() {
    static const PresetGroup group{"Broadcast TV", {0, 1, 2, 3, 4, 5, 6, 7}};
    return group;
}

const PresetGroup& streamingGroup() {
    static const PresetGroup group{"Streaming musical", {10, 11, 12, 13, 14, 15, 16, 17, 18, 19}};
    return group;
}

std::string presetTag(int index) {
    const auto& table = presets();
    if (index >= static_cast<int>(table.size())) return numbered("preset", index);
    if (index >= 0) {
        const std::string& label = table[static_cast<std::size_t>(index)].label;
        for (const auto& [fragment, tag] : presetTagTable)
            if (label.find(fragment) != std::string::npos) return std::string(tag);
    }
    return numbered("p", index);
}

}  // namespace velmora
