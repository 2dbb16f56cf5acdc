#pragma once
// The one record that configures the mastering chain, the processing mode of a job, and the
// record's persisted JSON form. Frequencies in Hz, gains and levels in dB, times in ms, ratios
// as n for n:1.
#include <optional>
#include <string>
#include <string_view>

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

// One JSON object with the 35 keys in field order; booleans as JSON booleans, numbers in their
// shortest round-trip form. A non-finite number has no JSON form and is written as null, which
// masterParamsFromJson then refuses. Allocates the string.
std::string toJson(const MasterParams& params);

// Every one of the 35 keys is required with its own type; anything else in the text (a missing
// key, a wrong type, a nested value, a repeated key, trailing text) refuses the whole record.
// Keys it does not know are skipped. Allocates (the key being read).
std::optional<MasterParams> masterParamsFromJson(std::string_view json);

}  // namespace velmora
