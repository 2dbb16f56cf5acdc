#pragma once
// The range of every numeric chain setting, the one table the knobs, the command line's
// --params check and the stored presets all read, and the guard that keeps each filter under
// Nyquist whatever rate it runs at.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mastering/MasterParams.h"

namespace velmora {

struct ParamRange {
    double low = 0, high = 0;
    bool contains(double v) const { return v >= low && v <= high; }  // false for NaN
    double clamp(double v) const;                                      // NaN goes to low
};

// Nothing for the switches (booleans) and for a field the table does not cover.
std::optional<ParamRange> rangeOf(double MasterParams::*field);
std::optional<ParamRange> rangeOf(std::string_view key);

struct OutOfRange {
    std::string_view key;
    double value = 0;
    ParamRange range;
};

// Every numeric field outside its range (or not finite), in field order. Allocates.
std::vector<OutOfRange> outOfRange(const MasterParams& params);

// The record with every numeric field brought into its range.
MasterParams clampedToRanges(const MasterParams& params);

// "hpfFreq = -40 hors de sa plage (20 à 300)", locale-free.
std::string describe(const OutOfRange& value);

// Filters are designed at most at this share of their own rate: well under Nyquist, where the
// cookbook designs stay finite and stable from 8 kHz to 384 kHz.
inline constexpr double nyquistShare = 0.45;
// The frequency a design is given: at most nyquistShare × the rate, at least 1 Hz.
double underNyquist(double freqHz, double sampleRate);

}  // namespace velmora
