#pragma once
// How a written master stands against its norm, and where that norm is published.
#include <optional>
#include <string_view>

#include "measurement/LoudnessEngine.h"
#include "norms/Presets.h"

namespace velmora {

// Why a master is or is not conform; the reports word it in their own language.
enum class VerdictReason { onTarget, loudnessOff, peakOver, both };

struct NormVerdict {
    bool conform;
    VerdictReason reason;
};

// Judged on the norm's own target and ceiling, within the norm's tolerance.
// A master whose target the ceiling put out of reach (targetMissedLUFS) has its loudness off
// target even when it lands inside the tolerance: it is not what was asked for.
NormVerdict normVerdict(const LoudnessResult& after, const Preset& norm,
                        std::optional<double> targetMissedLUFS = std::nullopt);
// The same on the target and ceiling the master was made for: a custom target is what the
// client asked for, and the master is judged on it with the base norm's tolerance.
NormVerdict normVerdict(const LoudnessResult& after, const Preset& norm, double targetLUFS, double ceilingDB,
                        std::optional<double> targetMissedLUFS = std::nullopt);

// A target or a ceiling moved off the norm's own: the master is made for a custom target that
// only started from the norm. The window's norm picker and the reports both say so.
bool isCustomTarget(const Preset& norm, double targetLUFS, double ceilingDB);

// The publisher's page for the first known norm name in the label; none for norms with no
// stable public page.
std::optional<std::string_view> officialReferenceURL(std::string_view normLabel);

}  // namespace velmora
