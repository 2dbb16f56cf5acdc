#include "mastering/ParamRanges.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <variant>

#include "audio/NumberFormat.h"

namespace velmora {

namespace {

struct Row {
    double MasterParams::*field;
    ParamRange range;
};

// The travel of each control of the window; gains are ±12 dB everywhere.
constexpr ParamRange gain{-12, 12};
constexpr ParamRange q{0.3, 3};
const std::array<Row, 27> rows{{
    {&MasterParams::hpfFreq, {20, 300}},
    {&MasterParams::lsGain, gain},
    {&MasterParams::lsFreq, {40, 400}},
    {&MasterParams::b1Freq, {100, 2000}},
    {&MasterParams::b1Gain, gain},
    {&MasterParams::b1Q, q},
    {&MasterParams::b2Freq, {1000, 12000}},
    {&MasterParams::b2Gain, gain},
    {&MasterParams::b2Q, q},
    {&MasterParams::hsGain, gain},
    {&MasterParams::hsFreq, {4000, 16000}},
    {&MasterParams::compThreshold, {-40, 0}},
    {&MasterParams::compRatio, {1, 10}},
    {&MasterParams::compAttack, {0.1, 100}},
    {&MasterParams::compRelease, {10, 1000}},
    {&MasterParams::compMakeup, {0, 12}},
    {&MasterParams::lraTarget, {5, 16}},
    {&MasterParams::midGain, gain},
    {&MasterParams::sideGain, gain},
    {&MasterParams::tLsGain, gain},
    {&MasterParams::tLsFreq, {40, 400}},
    {&MasterParams::tMidGain, gain},
    {&MasterParams::tMidFreq, {200, 8000}},
    {&MasterParams::tMidQ, q},
    {&MasterParams::tHsGain, gain},
    {&MasterParams::tHsFreq, {3000, 18000}},
    {&MasterParams::autoProtectThresholdDB, {0.5, 4}},
}};

std::string number(double v) { return formatShortest(v); }

}  // namespace

double ParamRange::clamp(double v) const { return std::isnan(v) ? low : std::clamp(v, low, high); }

std::optional<ParamRange> rangeOf(double MasterParams::*field) {
    for (const Row& r : rows)
        if (r.field == field) return r.range;
    return std::nullopt;
}

std::optional<ParamRange> rangeOf(std::string_view key) {
    for (const auto& f : masterParamsFields)
        if (f.key == key)
            if (auto* member = std::get_if<double MasterParams::*>(&f.member)) return rangeOf(*member);
    return std::nullopt;
}

std::vector<OutOfRange> outOfRange(const MasterParams& params) {
    std::vector<OutOfRange> found;
    for (const auto& f : masterParamsFields) {
        auto* member = std::get_if<double MasterParams::*>(&f.member);
        if (!member) continue;
        const auto range = rangeOf(*member);
        if (range && !range->contains(params.**member)) found.push_back({f.key, params.**member, *range});
    }
    return found;
}

MasterParams clampedToRanges(const MasterParams& params) {
    MasterParams out = params;
    for (const Row& r : rows) out.*r.field = r.range.clamp(out.*r.field);
    return out;
}

std::string describe(const OutOfRange& v) {
    return std::string(v.key) + " = " + number(v.value) + " hors de sa plage (" + number(v.range.low) + " à " + number(v.range.high) +
           ")";
}

double underNyquist(double freqHz, double sampleRate) {
    // At or under 0 Hz (or NaN) a design turns over: the least is 1 Hz, which leaves the sound alone.
    if (!(freqHz > 1.0)) return 1.0;
    return std::min(freqHz, nyquistShare * sampleRate);
}

}  // namespace velmora
