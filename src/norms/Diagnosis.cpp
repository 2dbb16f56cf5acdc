#include "norms/Diagnosis.h"

#include "audio/NumberFormat.h"

#include <algorithm>
#include <cmath>

namespace velmora {

std::vector<NormCheck> diagnose(const std::vector<Preset>& table, double integratedLUFS, double truePeakDB) {
    std::vector<NormCheck> checks;
    checks.reserve(table.size());
    for (std::size_t i = 0; i < table.size(); ++i) {
        const Preset& p = table[i];
        const bool integratedOK = std::isfinite(integratedLUFS) &&
                                  std::abs(integratedLUFS - p.lufs) <= p.toleranceLU + displayRoundingMargin;
        const bool truePeakOK = std::isfinite(truePeakDB) && truePeakDB <= p.ceiling + displayRoundingMargin;
        checks.push_back({static_cast<int>(i), p.label, p.unit, p.lufs, p.ceiling, integratedLUFS, truePeakDB,
                          integratedOK && truePeakOK, integratedOK, truePeakOK});
    }
    return checks;
}

int conformCount(const std::vector<NormCheck>& checks) {
    return static_cast<int>(std::count_if(checks.begin(), checks.end(), [](const NormCheck& c) { return c.conform; }));
}

std::string diagnosisSummary(const std::vector<NormCheck>& checks) {
    return "Le fichier sans aucune retouche : " + std::to_string(conformCount(checks)) +
           " normes mondiales déjà respectées sur " + std::to_string(checks.size()) + ".";
}

std::string diagnosisBadge(const std::vector<NormCheck>& checks) {
    return std::to_string(conformCount(checks)) + " / " + std::to_string(checks.size()) + " ✓";
}

std::string deviationText(const NormCheck& check) {
    if (!std::isfinite(check.integratedLUFS)) return "—";
    return formatSignedOneDecimal(check.integratedLUFS - check.targetLUFS) + " LU";
}

}  // namespace velmora
