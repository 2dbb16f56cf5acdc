#pragma once
// The one record that configures the mastering chain, the processing mode of a job, and the
// names its fields persist under. Frequencies in Hz, gains and levels in dB, times in ms, ratios
// as n for n:1.
#include <array>
#include <optional>
#include <string>  // kept for the files that have long relied on it from here
#include <string_view>
#include <variant>

namespace velmora {

struct MasterParams {
    bool eqOn = false;
    bool hpfOn = false;
    double hpfFreq = 40;
    double lsGain = 0;
    double lsFreq = 120;
    double b1Freq = 400;
    double b1Gain = 0;
    double b1Q = 1.0;
    double b2Freq = 3000;
    double b2Gain = 0;
    double b2Q = 1.0;
    double hsGain = 0;
    double hsFreq = 8000;

    bool compOn = false;
    double compThreshold = -18;  // dBFS
    double compRatio = 2;
    double compAttack = 10;
    double compRelease = 200;
    double compMakeup = 0;

    bool lraOn = false;
    double lraTarget = 12;  // LU

    bool msOn = false;
    double midGain = 0;
    double sideGain = 0;

    bool teqOn = false;
    double tLsGain = 0;
    double tLsFreq = 100;
    double tMidGain = 0;
    double tMidFreq = 1000;
    double tMidQ = 0.7;
    double tHsGain = 0;
    double tHsFreq = 10000;

    bool autoProtectComp = true;
    double autoProtectThresholdDB = 1.5;  // planned limiter reduction that calls in the protection
    bool lraIterative = false;

    bool operator==(const MasterParams&) const = default;
};

// `conform` renders with a default MasterParams: only the conformity gain, the limiter and,
// when needed, the protection compressor act.
enum class ProcessMode { master, conform };

// The raw values are also the texts shown to the user.
std::string_view rawValue(ProcessMode mode);
std::optional<ProcessMode> processModeFromRaw(std::string_view raw);

struct MasterParamsField {
    std::string_view key;
    std::variant<bool MasterParams::*, double MasterParams::*> member;
};

// Every field of MasterParams once, in declaration order, under the name it is stored with in
// user presets and --params files: never rename one. The file formats live above this layer and
// walk this table, so a new field is persisted by adding it here (MasterParams.cpp refuses to
// compile until the table and the record agree on their count).
inline constexpr std::array<MasterParamsField, 35> masterParamsFields{{
    {"eqOn", &MasterParams::eqOn},
    {"hpfOn", &MasterParams::hpfOn},
    {"hpfFreq", &MasterParams::hpfFreq},
    {"lsGain", &MasterParams::lsGain},
    {"lsFreq", &MasterParams::lsFreq},
    {"b1Freq", &MasterParams::b1Freq},
    {"b1Gain", &MasterParams::b1Gain},
    {"b1Q", &MasterParams::b1Q},
    {"b2Freq", &MasterParams::b2Freq},
    {"b2Gain", &MasterParams::b2Gain},
    {"b2Q", &MasterParams::b2Q},
    {"hsGain", &MasterParams::hsGain},
    {"hsFreq", &MasterParams::hsFreq},
    {"compOn", &MasterParams::compOn},
    {"compThreshold", &MasterParams::compThreshold},
    {"compRatio", &MasterParams::compRatio},
    {"compAttack", &MasterParams::compAttack},
    {"compRelease", &MasterParams::compRelease},
    {"compMakeup", &MasterParams::compMakeup},
    {"lraOn", &MasterParams::lraOn},
    {"lraTarget", &MasterParams::lraTarget},
    {"msOn", &MasterParams::msOn},
    {"midGain", &MasterParams::midGain},
    {"sideGain", &MasterParams::sideGain},
    {"teqOn", &MasterParams::teqOn},
    {"tLsGain", &MasterParams::tLsGain},
    {"tLsFreq", &MasterParams::tLsFreq},
    {"tMidGain", &MasterParams::tMidGain},
    {"tMidFreq", &MasterParams::tMidFreq},
    {"tMidQ", &MasterParams::tMidQ},
    {"tHsGain", &MasterParams::tHsGain},
    {"tHsFreq", &MasterParams::tHsFreq},
    {"autoProtectComp", &MasterParams::autoProtectComp},
    {"autoProtectThresholdDB", &MasterParams::autoProtectThresholdDB},
    {"lraIterative", &MasterParams::lraIterative},
}};

}  // namespace velmora
