#pragma once
// Delivery check for French TV ready-to-air files, whose limits change with programme length.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmora {

struct PADCheck {
    struct Line {
        std::string label, value, target;
        bool pass;
    };
    bool isShort;
    std::vector<Line> lines;
    bool conforms() const;
};

// Programmes up to this length are judged on short-term loudness, longer ones on integrated loudness.
inline constexpr double padShortProgrammeMaxSeconds = 120.0;

inline constexpr std::string_view padNote =
    "Mesure effectuée sur le programme entier. Le contrôle de l'excursion des dialogues seuls "
    "(-30 à -16 LUFS court terme, RT-040) demande une détection de dialogue dédiée, non incluse : "
    "à vérifier dans votre station de mixage.";
inline constexpr std::string_view padVerdictConform = "CONFORME RT-040";
inline constexpr std::string_view padVerdictNonConform = "NON CONFORME";

// Silence (true peak -inf) meets the peak ceiling; a missing loudness reading fails its line,
// except the informative one and an absent loudness range.
PADCheck checkPAD(std::optional<double> loudnessRangeLU, double integratedLUFS, double truePeakDB,
                  double shortTermMaxLUFS, double durationSeconds);

std::string_view padVerdict(const PADCheck& check);

}  // namespace velmora
