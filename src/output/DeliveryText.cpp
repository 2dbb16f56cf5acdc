#include "audio/NumberFormat.h"
#include "output/MasterDelivery.h"

namespace velmora {

std::string targetMissedText(double lufs) {
    return "Cible non atteinte : " + formatOneDecimal(lufs) + " LUFS (plafond True Peak)";
}

std::string targetMissedTextEnglish(double lufs) {
    return "Target not reached: " + formatOneDecimal(lufs) + " LUFS (True Peak ceiling)";
}

}  // namespace velmora
