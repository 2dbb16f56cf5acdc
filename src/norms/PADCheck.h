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
    bool checksDialogue = false;  // the dialogue excursion has its own line
    bool conforms() const;
};

// Short-term loudness over the stretches that carry speech (dialogue-gated measurements).
struct DialogueExcursion {
    double minLUFS, maxLUFS;
};

// Programmes up to this length are judged on short-term loudness, longer ones on integrated loudness.
inline constexpr double padShortProgrammeMaxSeconds = 120.0;

inline constexpr std::string_view padNote =
    "Mesure effectuée sur le programme entier. Le contrôle de l'excursion des dialogues seuls "
    "(-30 à -16 LUFS court terme, RT-040) demande une détection de dialogue dédiée, non incluse : "
    "à vérifier dans votre station de mixage.";
inline constexpr std::string_view padNoteDialogueChecked =
    "Mesure effectuée sur le programme entier. L'excursion des dialogues seuls (-30 à -16 LUFS court "
    "terme, RT-040) est contrôlée sur les passages où la détection de dialogue entend de la parole.";
// The note that goes with a check: whether the dialogue excursion was checked.
std::string_view padNoteFor(const PADCheck& check);
inline constexpr std::string_view padVerdictConform = "CONFORME RT-040";
inline constexpr std::string_view padVerdictNonConform = "NON CONFORME";

// Silence (true peak -inf) meets the peak ceiling; a missing loudness reading fails its line,
// except the informative one and an absent loudness range.
// Present when both ends are: the measurement found speech.
inline std::optional<DialogueExcursion> dialogueExcursion(std::optional<double> minLUFS, std::optional<double> maxLUFS) {
    if (!minLUFS || !maxLUFS) return std::nullopt;
    return DialogueExcursion{*minLUFS, *maxLUFS};
}

// With the speech stretches known, the dialogue excursion is checked too, on a line of its own.
PADCheck checkPAD(std::optional<double> loudnessRangeLU, double integratedLUFS, double truePeakDB,
                  double shortTermMaxLUFS, double durationSeconds,
                  std::optional<DialogueExcursion> dialogue = std::nullopt);

std::string_view padVerdict(const PADCheck& check);

}  // namespace velmora
