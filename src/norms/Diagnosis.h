#pragma once
// How one measured file stands against every delivery norm at once, before any correction.
#include "norms/Presets.h"

#include <string>
#include <vector>

namespace velmora {

// Readings are shown to one decimal: a value that rounds onto a limit must not be shown failing it.
inline constexpr double displayRoundingMargin = 0.05;

struct NormCheck {
    int id;  // index of the norm in the table it was checked against
    std::string presetLabel;
    LoudnessUnit unit;
    double targetLUFS;
    double ceilingDBTP;
    double integratedLUFS;
    double truePeakDBTP;
    bool conform;
    bool integratedOK;
    bool truePeakOK;
};

// A non-finite reading (silence, failed measure) fails every norm on that reading.
std::vector<NormCheck> diagnose(const std::vector<Preset>& table, double integratedLUFS, double truePeakDB);

int conformCount(const std::vector<NormCheck>& checks);
std::string diagnosisSummary(const std::vector<NormCheck>& checks);
std::string diagnosisBadge(const std::vector<NormCheck>& checks);

// Integrated loudness minus target, e.g. "-1.9 LU"; "—" when there is no integrated reading.
std::string deviationText(const NormCheck& check);

}  // namespace velmora
