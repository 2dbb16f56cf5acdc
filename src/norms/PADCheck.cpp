#include "norms/PADCheck.h"

#include "norms/Diagnosis.h"
#include "audio/NumberFormat.h"

#include <algorithm>
#include <cmath>

namespace velmora {

namespace {

constexpr double ceilingDBTP = -3.0;
constexpr double integratedTargetLUFS = -23.0;
constexpr double integratedToleranceLU = 1.0;
constexpr double rangeMaxLU = 20.0;
constexpr double shortProgrammeShortTermMaxLUFS = -20.0;
constexpr double longProgrammeShortTermMaxLUFS = -16.0;
constexpr double dialogueLowestLUFS = -30.0, dialogueHighestLUFS = -16.0;

std::string valueText(double value, const char* unit) {
    return std::isfinite(value) ? formatOneDecimal(value) + " " + unit : "—";
}

bool finiteAtMost(double value, double limit) {
    return std::isfinite(value) && value <= limit + displayRoundingMargin;
}

}  // namespace

bool PADCheck::conforms() const {
    return std::all_of(lines.begin(), lines.end(), [](const Line& l) { return l.pass; });
}

PADCheck checkPAD(std::optional<double> loudnessRangeLU, double integratedLUFS, double truePeakDB,
                  double shortTermMaxLUFS, double durationSeconds, std::optional<DialogueExcursion> dialogue) {
    PADCheck check{durationSeconds <= padShortProgrammeMaxSeconds, {}};
    // Comparing rather than testing finiteness lets -inf (digital silence) pass and NaN fail.
    check.lines.push_back({"Crête vraie (True Peak)", valueText(truePeakDB, "dBTP"), "≤ -3,0 dBTP",
                           truePeakDB <= ceilingDBTP + displayRoundingMargin});
    if (check.isShort) {
        check.lines.push_back({"Sonie court terme max", valueText(shortTermMaxLUFS, "LUFS"), "≤ -20,0 LUFS",
                               finiteAtMost(shortTermMaxLUFS, shortProgrammeShortTermMaxLUFS)});
        check.lines.push_back(
            {"Sonie intégrée (indicatif)", valueText(integratedLUFS, "LUFS"), "≈ -23,0 LUFS", true});
    } else {
        check.lines.push_back(
            {"Sonie intégrée (I)", valueText(integratedLUFS, "LUFS"), "-23,0 ±1,0 LUFS",
             std::isfinite(integratedLUFS) &&
                 std::abs(integratedLUFS - integratedTargetLUFS) <= integratedToleranceLU + displayRoundingMargin});
        check.lines.push_back({"Plage de sonie (LRA)",
                               loudnessRangeLU ? valueText(*loudnessRangeLU, "LU") : "—", "≤ 20,0 LU",
                               !loudnessRangeLU || *loudnessRangeLU <= rangeMaxLU + displayRoundingMargin});
        check.lines.push_back({"Sonie court terme max", valueText(shortTermMaxLUFS, "LUFS"), "≤ -16,0 LUFS",
                               finiteAtMost(shortTermMaxLUFS, longProgrammeShortTermMaxLUFS)});
    }
    if (dialogue) {
        const bool known = std::isfinite(dialogue->minLUFS) && std::isfinite(dialogue->maxLUFS);
        check.lines.push_back(
            {"Excursion des dialogues",
             known ? formatOneDecimal(dialogue->minLUFS) + " à " + formatOneDecimal(dialogue->maxLUFS) + " LUFS" : "—",
             "-30,0 à -16,0 LUFS",
             known && dialogue->minLUFS >= dialogueLowestLUFS - displayRoundingMargin &&
                 finiteAtMost(dialogue->maxLUFS, dialogueHighestLUFS)});
        check.checksDialogue = true;
    }
    return check;
}

std::string_view padNoteFor(const PADCheck& check) { return check.checksDialogue ? padNoteDialogueChecked : padNote; }

std::string_view padVerdict(const PADCheck& check) {
    return check.conforms() ? padVerdictConform : padVerdictNonConform;
}

}  // namespace velmora
