#pragma once
// Delivery norms the user can pick, how a pick changes the measurement settings, and the short
// tags that name exported reports.
#include "audio/ChannelLayout.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velmora {

struct Preset {
    std::string id;  // random per run: tells entries apart, never persisted as a reference
    std::string label;
    double lufs;
    double ceiling;  // dBTP
    LoudnessUnit unit;
    GatingMode recommendedGating;
    bool ceilingLocked;
    std::optional<double> ldrLimitLU;
    std::optional<double> msLimitLUFS;
    double toleranceLU;
};

// Built on first use; safe to call from any thread.
const std::vector<Preset>& presets();

// Out-of-range indices land on the nearest entry, so a stale stored choice still selects a norm.
const Preset& presetAt(int index);

GatingMode effectiveGatingMode(GatingMode setting, const Preset& preset);

struct NormSelection {
    double target;
    double ceiling;
    LoudnessUnit displayUnit;
    GatingMode gatingMode;
};

// A gating the user chose by hand survives a new norm only when that norm recommends it too;
// anything else goes back to automatic so the norm's own gating applies.
NormSelection applyPreset(const Preset& preset, GatingMode currentGating);

struct PresetGroup {
    std::string title;
    std::vector<int> indices;
};

const PresetGroup& broadcastGroup();
const PresetGroup& streamingGroup();

// Ordered: a longer name must come before any shorter one it contains ("Tidal HiFi" before "Tidal").
inline constexpr std::array<std::pair<std::string_view, std::string_view>, 23> presetTagTable{{
    {"Apple Podcasts", "ApplePod"},
    {"Apple Music", "Apple"},
    {"Dolby Atmos Music", "Atmos"},
    {"Tidal HiFi", "TidalHiFi"},
    {"EBU R128", "EBU"},
    {"Netflix", "Netflix"},
    {"CALM Act", "CALM"},
    {"ATSC", "ATSC"},
    {"CRTC", "CRTC"},
    {"ARIB", "ARIB"},
    {"AGCOM", "AGCOM"},
    {"OP-59", "OP59"},
    {"KCC", "KCC"},
    {"RT-040", "RT040"},
    {"RT-017", "RT017"},
    {"Cinéma", "Cinema"},
    {"Spotify", "Spotify"},
    {"YouTube", "YouTube"},
    {"Amazon Music", "Amazon"},
    {"Tidal", "Tidal"},
    {"Deezer", "Deezer"},
    {"Pandora", "Pandora"},
    {"« loud »", "Loud"},
}};

// Beyond the table: "preset<index>"; a label no tag matches, or a negative index: "p<index>".
std::string presetTag(int index);

}  // namespace velmora
